// Whether a text is an IP address.
//
// Threads: pure functions.
#pragma once

#include <string_view>

namespace qx {

/// True for four numbers of 0 to 255 without leading zeros, joined with dots.
bool isIpv4Address(std::string_view text);
/// True for an IPv6 address by RFC 4291: eight groups of hexadecimal digits, "::" at most once, and
/// the last two groups also as an IPv4 address. Brackets and zones are not allowed.
bool isIpv6Address(std::string_view text);

}  // namespace qx
