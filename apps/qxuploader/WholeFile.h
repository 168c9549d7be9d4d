// Reads a file that a person has named.
//
// Threads: pure functions.
#pragma once

#include <string>

#include "platform/Data.h"
#include "platform/Error.h"

namespace qx::app {

/// Reads the whole file into memory, or yields the error.
Result<Data> readWholeFile(const std::string& path);
/// The failure to read a file, for the person who named it: "could not be read: ...".
std::string readFailure(const Error& error);

}  // namespace qx::app
