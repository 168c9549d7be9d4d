#include "platform/Utf8.h"

#include <cstddef>

namespace qx {

std::optional<std::uint32_t> takeUtf8Character(std::string_view& text) {
  const auto byteAt = [&](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
  };
  const std::uint32_t first = byteAt(0);
  std::size_t length = 1;
  std::uint32_t least = 0;
  std::uint32_t character = first;
  if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    least = 0x10000;
    character = first & 0x07;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    least = 0x800;
    character = first & 0x0F;
  } else if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
    least = 0x80;
    character = first & 0x1F;
  } else if (first >= 0x80) {
    return std::nullopt;
  }
  if (text.size() < length) return std::nullopt;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(i) & 0xC0) != 0x80) return std::nullopt;
    character = (character << 6) | (byteAt(i) & 0x3F);
  }
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  if (character < least || character > 0x10FFFF || surrogate) return std::nullopt;
  text.remove_prefix(length);
  return character;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    if (!takeUtf8Character(text)) return false;
  }
  return true;
}

}  // namespace qx
