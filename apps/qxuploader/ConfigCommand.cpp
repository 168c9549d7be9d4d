#include "ConfigCommand.h"

#include "Session.h"

namespace qx::app {
namespace {

/// The part of a setting that may be shown. An address is shown without the password that it may
/// contain.
std::string shownValue(const SettingKey& setting, const std::string& value) {
  if (setting.secret) return masked(value);
  return setting.isAddress() ? setting.shownAddress(value) : value;
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
