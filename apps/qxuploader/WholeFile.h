// Reads a file that a person has named.
//
// Threads: pure functions.
#pragma once

#include <string>

#include "platform/Data.h"
#include "platform/Error.h"

namespace qx::app {

/// The whole file in memory, or what went wrong.
Result<Data> readWholeFile(const std::string& path);
/// What the failure to read a file means to who named it: "could not be read: ...".
std::string readFailure(const Error& error);

}  // namespace qx::app
