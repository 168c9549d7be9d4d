// Digests: SHA-1 for the backend's image reports, SHA-256 and HMAC for signatures, and MD5 to
// compare a downloaded object with its ETag.
//
//     const Sha256Digest key = digests.hmacSha256("secret", "20261121");
//     const Sha256Digest next = digests.hmacSha256(bytesOf(key), "us-east-1");
//
// Threads: every operation may be called from any thread. One Md5 belongs to one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

namespace qx {

using Sha1Digest = std::array<std::byte, 20>;
using Sha256Digest = std::array<std::byte, 32>;
using Md5Digest = std::array<std::byte, 16>;

/// The bytes of a digest as a text, so that it can be the key or the message of another digest.
template <std::size_t size>
std::string_view bytesOf(const std::array<std::byte, size>& digest) {
  return {reinterpret_cast<const char*>(digest.data()), size};
}

/// The MD5 of bytes that come piece by piece.
class Md5 {
 public:
  virtual ~Md5() = default;
  virtual void update(std::string_view bytes) = 0;
  /// The digest. Call it once, at the end.
  virtual Md5Digest finish() = 0;
};

class Digests {
 public:
  virtual ~Digests() = default;
  virtual Sha1Digest sha1(std::string_view bytes) = 0;
  virtual Sha256Digest sha256(std::string_view bytes) = 0;
  /// HMAC-SHA256.
  virtual Sha256Digest hmacSha256(std::string_view key, std::string_view bytes) = 0;
  /// Begins an MD5, or yields null when the system allows no MD5.
  virtual std::unique_ptr<Md5> md5() = 0;
};

}  // namespace qx
