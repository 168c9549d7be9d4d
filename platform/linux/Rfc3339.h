// Dates as the backend writes them.
//
// Threads: a pure function, callable from any thread.
#pragma once

#include <optional>
#include <string_view>

namespace qx {

/// Seconds since 1970 of "2026-11-21T00:06:00Z": RFC 3339 with its zone, "Z" or "+hh:mm", and an
/// optional fraction. Nothing for any other text or a date that the calendar does not have.
std::optional<double> parseRfc3339(std::string_view text);

}  // namespace qx
