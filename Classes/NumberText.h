// Numbers as texts, in the forms that file names, extra values and item ids use.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qx {

/// The shortest decimal text that is read as the same value. An integral value ends in ".0". The
/// form is "1e-05" (an "e", a sign, at least two digits of the exponent, no ".0") below 1e-4, and
/// above 2^53 for a double or 2^24 for a float, where the type cannot hold every integer. 2^53 and
/// 2^24 themselves are written out: 9007199254740992.0 and 16777216.0. Special values are "inf",
/// "-inf", "nan", "0.0" and "-0.0".
std::string shortestText(double value);
std::string shortestText(float value);

/// The shortest decimal text of a time in seconds, always without an exponent.
std::string timeText(double secondsSince1970);

/// The integer in a text of an optional sign and ASCII digits, within the signed 64-bit range.
/// Nothing for any other text.
std::optional<std::int64_t> parseDecimal(std::string_view text);

}  // namespace qx
