// Dates as the backend writes them.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qx {

/// Seconds since 1970 of "2026-11-21T00:06:00Z": RFC 3339 with its zone, "Z" or "+hh:mm", and an
/// optional fraction. Nothing for any other text or a date that the calendar does not have.
std::optional<double> parseRfc3339(std::string_view text);

/// The other way, in UTC and to the microsecond: "2026-11-21T00:06:00Z", with a fraction of six
/// digits unless it is zero. Nothing outside the years 0 to 9999.
std::optional<std::string> rfc3339Text(double secondsSince1970);

}  // namespace qx
