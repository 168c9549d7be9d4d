#include "ConfigCommand.h"

#include "Session.h"

namespace qx::app {
namespace {

/// What may be shown of a setting: an address comes without the password that may stand in it.
std::string shownValue(const SettingKey& setting, std::string value) {
  if (setting.secret) return masked(value);
  const std::size_t scheme = value.find("://");
  // A proxy may do without a scheme, and its password may hold "/": nothing behind it may hold "@".
  const bool proxy = setting.key == "proxy";
  if (scheme == std::string::npos && !proxy) return value;
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t end = proxy ? std::string::npos : value.find_first_of("/?#", start);
  const std::size_t at = value.substr(0, end).rfind('@');
  if (at == std::string::npos || at < start) return value;
  return value.replace(start, at - start, "***");
}

}  // namespace

int runConfig(const Settings& settings, Output& out) {
  for (const SettingKey& setting : kSettings) {
    const Settings::Entry& entry = settings.entry(setting.key);
    const auto value = settings.get(setting.key);
    const std::string shown = value ? shownValue(setting, *value) : "";
    std::string line(setting.key);
    line.resize(16, ' ');
    if (value) {
      line += shown + "  (" + entry.origin + ")";
    } else {
      line += "-  (not set: " + setting.flag() + ", " + setting.environmentVariable() + ")";
    }
    out.event({{"event", "setting"},
               {"key", setting.key},
               {"value", value ? Event(shown) : Event()},
               {"origin", value ? Event(entry.origin) : Event()}},
              line);
  }
  const std::string file = settings.file().value_or(Settings::userConfigFile());
  out.event({{"event", "file"}, {"path", file}, {"read", settings.file().has_value()}},
            "file: " + file + (settings.file() ? "" : " (does not exist)"));
  return kAllDone;
}

}  // namespace qx::app
