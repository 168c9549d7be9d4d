// Numbers as text, in the forms that file names, extra values and item ids use.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qx {

/// The shortest decimal text that reads back as the same value. Integral values end in ".0".
/// Above 2^53 for a double and 2^24 for a float, where the type no longer tells every integer from
/// the next, and below 1e-4, the form is "1e-05": an "e", a sign, at least two exponent digits, and
/// no ".0". 2^53 and 2^24 themselves are still written out: 9007199254740992.0 and 16777216.0.
/// "inf", "-inf", "nan", "0.0", "-0.0".
std::string shortestText(double value);
std::string shortestText(float value);

/// A time in seconds as its shortest decimal text, never with an exponent.
std::string timeText(double secondsSince1970);

/// The integer of a text that is an optional sign and ASCII digits within the signed 64-bit range,
/// else nothing.
std::optional<std::int64_t> parseDecimal(std::string_view text);

}  // namespace qx
