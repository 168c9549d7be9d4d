// One reader of UTF-8 for the simple formats.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qx::simple {

/// Takes the first character off `text`; nothing when the bytes are no UTF-8 (RFC 3629).
inline std::optional<std::uint32_t> takeCharacter(std::string_view& text) {
  const auto byteAt = [&](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
  };
  const std::uint32_t first = byteAt(0);
  std::size_t length = 1;
  std::uint32_t least = 0;
  std::uint32_t c = first;
  if (first >= 0xF0 && first <= 0xF4) {
    length = 4, least = 0x10000, c = first & 0x07;
  } else if (first >= 0xE0) {
    length = 3, least = 0x800, c = first & 0x0F;
    if (first > 0xEF) return std::nullopt;
  } else if (first >= 0xC2) {
    length = 2, least = 0x80, c = first & 0x1F;
  } else if (first >= 0x80) {
    return std::nullopt;
  }
  if (text.size() < length) return std::nullopt;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(i) & 0xC0) != 0x80) return std::nullopt;
    c = (c << 6) | (byteAt(i) & 0x3F);
  }
  if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
  text.remove_prefix(length);
  return c;
}

inline bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    if (!takeCharacter(text)) return false;
  }
  return true;
}

inline void appendUtf8(std::string& out, std::uint32_t c) {
  const auto put = [&](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | (c >> 6)), put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | (c >> 12)), put(0x80 | ((c >> 6) & 0x3F)), put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | (c >> 18)), put(0x80 | ((c >> 12) & 0x3F)), put(0x80 | ((c >> 6) & 0x3F)),
        put(0x80 | (c & 0x3F));
  }
}

}  // namespace qx::simple
