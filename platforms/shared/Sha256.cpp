#include "platforms/shared/Sha256.h"

#include <openssl/evp.h>

#include <initializer_list>
#include <memory>

#include "platform/Error.h"

namespace qx {
namespace {

constexpr std::size_t kBlock = 64;

/// OpenSSL looks an algorithm up by name on every use unless it has been fetched, which costs as
/// much as hashing a kilobyte.
const EVP_MD* algorithm() {
  static const EVP_MD* const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  return fetched;
}

Sha256Digest digestOf(std::initializer_list<std::string_view> pieces) {
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  thread_local const std::unique_ptr<EVP_MD_CTX, Free> context(EVP_MD_CTX_new());
  Sha256Digest digest{};
  bool done = EVP_DigestInit_ex2(context.get(), algorithm(), nullptr) == 1;
  for (const std::string_view piece : pieces) {
    done = done && EVP_DigestUpdate(context.get(), piece.data(), piece.size()) == 1;
  }
  if (!done || EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1) {
    fatal("OpenSSL has no SHA-256");
  }
  return digest;
}

}  // namespace

Sha256Digest sha256(std::string_view bytes) {
  return digestOf({bytes});
}

// Straight from RFC 2104; OpenSSL's own goes through a second look-up and three allocations.
Sha256Digest hmacSha256(std::string_view key, std::string_view bytes) {
  Sha256Digest shortened;
  if (key.size() > kBlock) {
    shortened = sha256(key);
    key = bytesOf(shortened);
  }
  std::array<char, kBlock> inner;
  std::array<char, kBlock> outer;
  for (std::size_t i = 0; i < kBlock; ++i) {
    const unsigned char byte = i < key.size() ? static_cast<unsigned char>(key[i]) : 0;
    inner[i] = static_cast<char>(byte ^ 0x36u);
    outer[i] = static_cast<char>(byte ^ 0x5cu);
  }
  const Sha256Digest first = digestOf({{inner.data(), kBlock}, bytes});
  return digestOf({{outer.data(), kBlock}, bytesOf(first)});
}

std::string hex(std::span<const unsigned char> digest) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * digest.size());
  for (const unsigned char byte : digest) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace qx
