// Dates as HTTP headers carry them.
//
// Threads: a pure function, callable from any thread.
#pragma once

#include <optional>
#include <string_view>

namespace qx {

/// Seconds since 1970 of a Date or Retry-After header in one of the three forms of RFC 9110, all of
/// which are in Greenwich time; nothing for any other text.
std::optional<double> parseHttpDate(std::string_view text);

}  // namespace qx
