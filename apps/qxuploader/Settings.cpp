#include "Settings.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>

#include "ConfigFile.h"
#include "TokenCommand.h"
#include "platform/UserInfo.h"
#include "platforms/shared/PosixFiles.h"

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
  std::map<std::string, std::string> texts;
  if (auto why = readConfigFile(path, texts)) return SettingsFault{*std::move(why)};
  for (auto& [key, text] : texts) {
    if (find(key) == nullptr) {
      return SettingsFault{path + ": no setting is named \"" + key +
                           "\"; \"qxuploader config\" lists them"};
    }
    entries[key] = {std::move(text), Source::file, path};
  }
  return std::nullopt;
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

std::string SettingKey::shownAddress(std::string_view address) const {
  return withoutUserInfo(address, "***", key != "proxy");
}

std::string Settings::userConfigFile() {
  std::string base = environmentText("XDG_CONFIG_HOME");
  // A relative base is ignored, by the base directory convention.
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
  if (!path.empty() && std::filesystem::exists(path, ignored)) {
    if (auto fault = readFile(path, entries)) return fault;
    settings.file_ = path;
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
  // An empty text removes a setting, as --proxy "" does when the file names a proxy.
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
  auto printed = outputOfTokenCommand(command.value);
  if (printed) return *std::move(printed);
  fault.message = "the token command of " + command.origin + " " + printed.error().description;
  return std::nullopt;
}

std::string masked(std::string_view secret) {
  if (secret.empty()) return "";
  // Nothing is shown of a short secret, because two characters of eight would be a quarter of it.
  return (secret.size() >= 16 ? std::string(secret.substr(0, 2)) : "") + "***";
}

}  // namespace qx::app
