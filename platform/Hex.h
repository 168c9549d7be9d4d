// Writes texts in lower-case hexadecimal digits and single bytes in either case, and reads single
// digits.
//
//     hex(digests.sha1("abc"));                 // "a9993e364706816aba3e25717850c26c9cd0d89d"
//     appendHex(text, std::byte{0xE9}, kUpperHex);  // Appends "E9".
//     hexValue('e');                            // 14
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qx {

inline constexpr std::string_view kLowerHex = "0123456789abcdef";
inline constexpr std::string_view kUpperHex = "0123456789ABCDEF";

/// Appends the two digits of `byte`. `digits` is kLowerHex or kUpperHex.
inline void appendHex(std::string& text, std::byte byte, std::string_view digits) {
  text += digits[std::to_integer<std::size_t>(byte >> 4)];
  text += digits[std::to_integer<std::size_t>(byte & std::byte{15})];
}

/// The bytes in lower-case hexadecimal digits.
inline std::string hex(std::span<const std::byte> bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::byte byte : bytes) appendHex(text, byte, kLowerHex);
  return text;
}

/// The value of a digit, 0 to 15. -1 for a character that is no hexadecimal digit.
inline int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace qx
