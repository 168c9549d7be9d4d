#include "Settings.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <toml++/toml.h>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Text.h"
#include "platform/linux/LinuxFiles.h"

namespace qx::app {
namespace {

std::string environmentText(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value ? value : "";
}

const SettingKey* find(std::string_view key) {
  for (const SettingKey& setting : kSettings) {
    if (setting.key == key) return &setting;
  }
  return nullptr;
}

std::optional<SettingsFault> readFile(
    const std::string& path, std::map<std::string, Settings::Entry, std::less<>>& entries) {
  toml::table table;
  try {
    table = toml::parse_file(path);
  } catch (const toml::parse_error& error) {
    const auto at = error.source().begin;
    return SettingsFault{path + ":" + std::to_string(at.line) + ": " +
                         std::string(error.description())};
  }
  for (const auto& [name, node] : table) {
    const std::string key(name.str());
    const SettingKey* setting = find(key);
    if (!setting) {
      return SettingsFault{path + ": no setting is named \"" + key +
                           "\"; \"qxuploader config\" lists them"};
    }
    const auto* text = node.as_string();
    if (!text) return SettingsFault{path + ": \"" + key + "\" is not a text in quotes"};
    entries[key] = {text->get(), Source::file, path};
  }
  return std::nullopt;
}

/// Somebody else's eyes on a token deserve a word; the settings stay in force.
void warnAboutReadableSecrets(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0 && (info.st_mode & (S_IRGRP | S_IROTH)) != 0) {
    std::fprintf(stderr, "qxuploader: %s holds a token and others can read it; chmod 600 it\n",
                 printable(path).c_str());
  }
}

std::optional<SettingsFault> check(const Settings& settings) {
  const std::string environment = settings.get("environment").value_or("");
  if (environment != "production" && environment != "test") {
    return SettingsFault{settings.entry("environment").origin + ": environment is \"" +
                         environment + "\", not production or test"};
  }
  return std::nullopt;
}

}  // namespace

std::string SettingKey::flag() const {
  std::string text = "--";
  for (const char c : key) text += c == '_' ? '-' : c;
  return text;
}

std::string SettingKey::environmentVariable() const {
  std::string text = "QXUPLOADER_";
  for (const char c : key) text += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string Settings::userConfigFile() {
  std::string base = environmentText("XDG_CONFIG_HOME");
  // A relative base is to be ignored, says the base directory convention.
  if (base.empty() || base.front() != '/') {
    const std::string home = environmentText("HOME");
    if (home.empty()) return {};
    base = home + "/.config";
  }
  return base + "/qxuploader/config.toml";
}

std::optional<SettingsFault> Settings::load(const std::map<std::string, std::string>& flags,
                                            const std::optional<std::string>& configFile,
                                            Settings& settings) {
  auto& entries = settings.entries_;
  for (const SettingKey& setting : kSettings) {
    if (!setting.builtIn.empty()) {
      entries[std::string(setting.key)] = {std::string(setting.builtIn), Source::builtIn,
                                           "built in"};
    }
  }

  std::error_code ignored;
  const std::string path = configFile ? *configFile : userConfigFile();
  if (configFile && !std::filesystem::exists(path, ignored)) {
    return SettingsFault{path + ": no such configuration file"};
  }
  if (std::filesystem::is_directory(path, ignored)) {
    return SettingsFault{path + " is a directory, not a configuration file"};
  }
  if (!path.empty() && std::filesystem::exists(path, ignored)) {
    if (auto fault = readFile(path, entries)) return fault;
    settings.file_ = path;
    if (settings.entry("token").source == Source::file) warnAboutReadableSecrets(path);
  }

  for (const SettingKey& setting : kSettings) {
    const std::string variable = setting.environmentVariable();
    const std::string value = environmentText(variable);
    if (!value.empty()) entries[std::string(setting.key)] = {value, Source::environment, variable};
  }
  for (const auto& [key, value] : flags) {
    entries[key] = {value, Source::flag, find(key)->flag()};
  }
  if (!settings.get("documents")) {
    if (const auto directory = defaultDocumentsDirectory()) {
      settings.set("documents", {*directory, Source::builtIn, "default"});
    }
  }
  return check(settings);
}

const Settings::Entry& Settings::entry(std::string_view key) const {
  static const Entry absent;
  const auto found = entries_.find(key);
  return found == entries_.end() ? absent : found->second;
}

std::optional<std::string> Settings::get(std::string_view key) const {
  const Entry& found = entry(key);
  // An empty text takes a setting back: --proxy "" where the file names one.
  if (found.source == Source::none || found.value.empty()) return std::nullopt;
  return found.value;
}

void Settings::set(std::string_view key, Entry entry) {
  entries_[std::string(key)] = std::move(entry);
}

std::optional<std::string> Settings::token(SettingsFault& fault) const {
  const Entry& text = entry("token");
  const Entry& command = entry("token_command");
  if (command.value.empty() || (!text.value.empty() && text.source >= command.source)) {
    return get("token");
  }
  FILE* pipe = ::popen(command.value.c_str(), "re");
  if (pipe == nullptr) {
    fault.message = "the token command of " + command.origin + " could not be started";
    return std::nullopt;
  }
  std::string printed;
  std::array<char, 4096> buffer;
  while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    printed.append(buffer.data(), n);
  }
  const int status = ::pclose(pipe);
  while (!printed.empty() && (printed.back() == '\n' || printed.back() == '\r')) printed.pop_back();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    fault.message = "the token command of " + command.origin + " failed" +
                    (WIFEXITED(status) ? " with exit status " + std::to_string(WEXITSTATUS(status))
                                       : std::string(" on a signal")) +
                    "; run it by hand to see why";
    return std::nullopt;
  }
  if (printed.empty()) {
    fault.message = "the token command of " + command.origin + " printed nothing";
    return std::nullopt;
  }
  return printed;
}

std::string masked(std::string_view secret) {
  if (secret.empty()) return "";
  // Short secrets show nothing: two characters of eight would be a quarter of them.
  return (secret.size() >= 16 ? std::string(secret.substr(0, 2)) : "") + "***";
}

}  // namespace qx::app
