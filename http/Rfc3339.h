// Dates in the form in which the backend writes them.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qx {

/// The seconds since 1970 of a date such as "2026-11-21T00:06:00Z": RFC 3339 with a zone, "Z" or
/// "+hh:mm", and an optional fraction. Nothing for any other text or for a date that the calendar
/// does not have.
std::optional<double> parseRfc3339(std::string_view text);

/// The date as a text in UTC with microseconds: "2026-11-21T00:06:00Z", with a fraction of six
/// digits unless the fraction is zero. Nothing outside the years 0 to 9999.
std::optional<std::string> rfc3339Text(double secondsSince1970);

}  // namespace qx
