// The configuration file on the disk: texts under their keys, in TOML.
//
// Threads: pure functions.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace qx::app {

/// Reads all texts of a configuration file into `texts`. Yields the fault of the file together with
/// its path, or nothing: that it cannot be read, that another user may write it (it can name a
/// command that is run), or that it is no flat list of texts. Warns on standard error when others
/// may read a token in it.
std::optional<std::string> readConfigFile(const std::string& path,
                                          std::map<std::string, std::string>& texts);

}  // namespace qx::app
