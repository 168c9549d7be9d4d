// The one operation on files that each system's own platform brings.
//
// Threads: may be called from any thread.
#pragma once

#include <string>

namespace qx {

/// Swaps what two names in an open directory stand for, in one step. False when nothing was done:
/// the system or the file system cannot, or one of the names is missing.
bool exchangeNames(int directory, const std::string& one, const std::string& other);

}  // namespace qx
