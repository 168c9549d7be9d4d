// The only operation on files that each system has to implement itself.
//
// Threads: the function may be called from any thread.
#pragma once

#include <string>

namespace qx {

/// Exchanges two names in an open directory in one step. False, and nothing is changed, when the
/// system or the file system cannot do that or when one of the names is missing.
bool exchangeNames(int directory, const std::string& one, const std::string& other);

}  // namespace qx
