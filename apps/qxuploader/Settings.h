// The settings of the host: their possible sources, the values in force, and the source of each
// value.
//
// Threads: the main thread makes the settings before anything else runs. Any thread may read them
// afterwards.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qx::app {

enum class Source { none, builtIn, file, environment, flag };

/// A setting: its key in the TOML file. The flag ("--user-id") and the environment variable
/// ("QXUPLOADER_USER_ID") follow from the key.
struct SettingKey {
  std::string_view key;
  std::string_view argument;
  std::string_view help;
  bool secret = false;
  std::string_view builtIn = {};

  std::string flag() const;
  std::string environmentVariable() const;
  bool isAddress() const { return argument == "URL"; }
  /// An address as it may be shown: without its password, even if the address is malformed.
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

/// The fault of the settings, for the person who gave them.
struct SettingsFault {
  std::string message;
};

class Settings {
 public:
  struct Entry {
    std::string value;
    Source source = Source::none;
    /// The path of the file, or the name of the variable or flag.
    std::string origin;
  };

  /// Flags take precedence over the environment, the environment over the file, and the file over
  /// built-in values. `flags` holds the values of the command line by key. `configFile` is the file
  /// of --config, which must exist. Without one, the file of the user is read if there is one. A
  /// fault names the file and the key.
  static std::optional<SettingsFault> load(const std::map<std::string, std::string>& flags,
                                           const std::optional<std::string>& configFile,
                                           Settings& settings);

  /// The value in force, or nothing.
  std::optional<std::string> get(std::string_view key) const;
  const Entry& entry(std::string_view key) const;
  /// Sets a value that was computed, such as the documents directory that is used without the
  /// setting.
  void set(std::string_view key, Entry entry);
  /// The configuration file that was read, if any.
  const std::optional<std::string>& file() const { return file_; }

  /// The path of the user's own configuration file.
  static std::string userConfigFile();

  /// The access token: the value itself or the output of the command, whichever has the higher
  /// precedence. Nothing, with a fault, when the command fails or prints nothing.
  std::optional<std::string> token(SettingsFault& fault) const;

 private:
  std::map<std::string, Entry, std::less<>> entries_;
  std::optional<std::string> file_;
};

/// The beginning "3f…" of a secret: enough to tell two secrets apart, and too little to use.
std::string masked(std::string_view secret);

}  // namespace qx::app
