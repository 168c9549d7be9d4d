// One strict reader of UTF-8 (RFC 3629).
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qx {

/// Takes the first character off `text`, which is not empty; nothing, and nothing taken, when its
/// first bytes are no UTF-8: overlong forms, surrogates, above U+10FFFF, cut off.
std::optional<std::uint32_t> takeUtf8Character(std::string_view& text);

bool isUtf8(std::string_view text);

}  // namespace qx
