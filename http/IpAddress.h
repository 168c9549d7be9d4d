// Whether a text is an IP address.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <string_view>

namespace qx {

/// Four numbers of 0 to 255 without leading zeros, joined with dots.
bool isIpv4Address(std::string_view text);
/// RFC 4291: eight groups of hexadecimal digits, "::" at most once, the last two groups also as an
/// IPv4 address. No brackets, no zone.
bool isIpv6Address(std::string_view text);

}  // namespace qx
