// Bytes as lower-case hexadecimal digits.
//
// Threads: a pure function.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace qx {

inline std::string hex(std::span<const std::byte> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::byte byte : bytes) {
    text += kDigits[std::to_integer<std::size_t>(byte >> 4)];
    text += kDigits[std::to_integer<std::size_t>(byte & std::byte{15})];
  }
  return text;
}

}  // namespace qx
