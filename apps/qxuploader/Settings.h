// The host's settings: where each may come from, what is in force, and where that came from.
//
// Threads: made by the main thread before anything else runs; read from any thread afterwards.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qx::app {

enum class Source { none, builtIn, file, environment, flag };

/// One setting: its key in the TOML file, from which flag ("--user-id") and environment variable
/// ("QXUPLOADER_USER_ID") follow.
struct SettingKey {
  std::string_view key;
  std::string_view argument;
  std::string_view help;
  bool secret = false;
  std::string_view builtIn = {};

  std::string flag() const;
  std::string environmentVariable() const;
  bool isAddress() const { return argument == "URL"; }
  /// An address as it may be shown, well-formed or not: without the password that may stand in it.
  std::string shownAddress(std::string_view address) const;
};

inline constexpr std::array<SettingKey, 11> kSettings = {{
    {"backend", "URL", "address of the application's backend"},
    {"upload_server", "URL", "address of the upload server, for --server-resize"},
    {"user_id", "ID", "the signed-in user"},
    {"token", "TOKEN",
     "the user's access token; other users can read a command line, so prefer "
     "the environment, the file or --token-command",
     true},
    {"token_command", "COMMAND", "a shell command that prints the access token"},
    {"ca_file", "FILE", "PEM file of the certificate authorities to trust"},
    {"store", "URL", "the object store's endpoint", false, "https://s3.amazonaws.com"},
    {"documents", "DIR", "where tasks and downloads are kept"},
    {"environment", "production|test", "test writes the library's log records", false,
     "production"},
    {"proxy", "URL", "HTTP proxy for every request"},
    {"no_proxy", "HOSTS", "hosts to reach without the proxy, comma-separated"},
}};

/// What is wrong with the settings, for the person who gave them.
struct SettingsFault {
  std::string message;
};

class Settings {
 public:
  struct Entry {
    std::string value;
    Source source = Source::none;
    /// The file's path, the variable's or flag's name.
    std::string origin;
  };

  /// Flags win over the environment, the environment over the file, the file over what is built in.
  /// `flags` holds what the command line gave, by key. `configFile` is the file of --config, which
  /// must exist; without one the user's own is read when there is one. A fault names file and key.
  static std::optional<SettingsFault> load(const std::map<std::string, std::string>& flags,
                                           const std::optional<std::string>& configFile,
                                           Settings& settings);

  /// The value in force, or nothing.
  std::optional<std::string> get(std::string_view key) const;
  const Entry& entry(std::string_view key) const;
  /// Sets what was computed, such as the documents directory that is used without the setting.
  void set(std::string_view key, Entry entry);
  /// The configuration file that was read, if any.
  const std::optional<std::string>& file() const { return file_; }

  /// Where the user's own configuration file would be.
  static std::string userConfigFile();

  /// The access token: the value itself or what the command prints, whichever was given closer to
  /// the command line. Nothing with a fault when the command fails or prints nothing.
  std::optional<std::string> token(SettingsFault& fault) const;

 private:
  std::map<std::string, Entry, std::less<>> entries_;
  std::optional<std::string> file_;
};

/// "3f…" of a secret: enough to tell two apart, too little to use.
std::string masked(std::string_view secret);

}  // namespace qx::app
