// SHA-256 and HMAC-SHA256, for signatures.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace qx {

using Sha256Digest = std::array<unsigned char, 32>;

Sha256Digest sha256(std::string_view bytes);
Sha256Digest hmacSha256(std::string_view key, std::string_view bytes);
/// Lower-case hexadecimal digits.
std::string hex(std::span<const unsigned char> digest);
/// The digest's bytes as a text, to be a key or a message again.
inline std::string_view bytesOf(const Sha256Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

}  // namespace qx
