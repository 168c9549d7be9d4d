// The only percent-encoder of the library, so that a signature covers exactly what is sent.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// Encodes every byte except A-Z a-z 0-9 - . _ ~ as %XX with upper-case digits: for a name or value
/// in a query, or a segment of a path.
std::string percentEncode(std::string_view text);
/// The same, but "/" is kept: for the path of an object key.
std::string percentEncodePath(std::string_view path);

}  // namespace qx
