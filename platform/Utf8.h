// A strict reader of UTF-8 (RFC 3629).
//
//     std::string_view rest = "a\u00e9";
//     takeUtf8Character(rest);  // 0x61; `rest` is "\u00e9" now.
//     isUtf8("\xc3");           // False: the character is truncated.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Export.h"

namespace qx {

/// Removes the first character from `text`, which is not empty, and yields it. Yields nothing and
/// leaves `text` as it is when its first bytes are no UTF-8: an overlong form, a surrogate, a code
/// above U+10FFFF, or a truncated character.
QX_EXPORT std::optional<std::uint32_t> takeUtf8Character(std::string_view& text);

QX_EXPORT bool isUtf8(std::string_view text);

}  // namespace qx
