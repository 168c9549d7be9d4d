#include "ConfigCommand.h"

#include "Session.h"

namespace qx::app {
namespace {

/// An address without the password that may stand in it.
std::string withoutPassword(std::string address) {
  const std::size_t scheme = address.find("://");
  const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t at = address.find('@', start);
  if (at == std::string::npos || at > address.find('/', start)) return address;
  return address.replace(start, at - start, "***");
}

}  // namespace

int runConfig(const Settings& settings, Output& out) {
  for (const SettingKey& setting : kSettings) {
    const Settings::Entry& entry = settings.entry(setting.key);
    const auto value = settings.get(setting.key);
    const std::string shown = !value           ? ""
                              : setting.secret ? masked(*value)
                                               : withoutPassword(*value);
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
