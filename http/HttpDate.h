// Dates in HTTP headers.
//
// Threads: a pure function.
#pragma once

#include <optional>
#include <string_view>

namespace qx {

/// The seconds since 1970 of a Date or Retry-After header in one of the three forms of RFC 9110,
/// all of which are in Greenwich time. Nothing for any other text.
std::optional<double> parseHttpDate(std::string_view text);

}  // namespace qx
