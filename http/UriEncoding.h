// The one percent-encoder: what a signature covers is what goes on the wire.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// Every byte but A-Z a-z 0-9 - . _ ~ as %XX, upper case: a query's name or value, a path segment.
std::string percentEncode(std::string_view text);
/// The same with "/" kept: the path of an object key.
std::string percentEncodePath(std::string_view path);

}  // namespace qx
