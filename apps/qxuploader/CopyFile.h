// A file brought into a folder of another file system.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string>

#include "platform/Error.h"

namespace qx::app {

/// Copies `from` beside `to`, under a random name and for this user alone, then renames the copy,
/// so that nobody sees half a file. `from` is removed. After an error `to` is what it was and the
/// copy is gone.
std::optional<Error> moveByCopy(const std::string& from, const std::string& to);

}  // namespace qx::app
