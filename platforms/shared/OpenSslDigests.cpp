#include "platforms/shared/OpenSslDigests.h"

#include <openssl/evp.h>

#include <initializer_list>
#include <utility>

#include "platform/Error.h"

namespace qx {
namespace {

constexpr std::size_t kBlock = 64;

struct Free {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_MD_CTX, Free>;

/// The algorithm, which is fetched once. Otherwise OpenSSL looks it up by name on every use, which
/// costs as much as hashing a kilobyte.
const EVP_MD* sha256Algorithm() {
  static const EVP_MD* const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  return fetched;
}

Sha256Digest digestOf(std::initializer_list<std::string_view> pieces) {
  thread_local const Context context(EVP_MD_CTX_new());
  Sha256Digest digest{};
  bool done = EVP_DigestInit_ex2(context.get(), sha256Algorithm(), nullptr) == 1;
  for (const std::string_view piece : pieces) {
    done = done && EVP_DigestUpdate(context.get(), piece.data(), piece.size()) == 1;
  }
  auto* out = reinterpret_cast<unsigned char*>(digest.data());
  if (!done || EVP_DigestFinal_ex(context.get(), out, nullptr) != 1) {
    fatal("OpenSSL has no SHA-256");
  }
  return digest;
}

class OpenSslMd5 : public Md5 {
 public:
  explicit OpenSslMd5(Context context) : context_(std::move(context)) {}
  void update(std::string_view bytes) override {
    EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
  }
  Md5Digest finish() override {
    Md5Digest digest{};
    EVP_DigestFinal_ex(context_.get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr);
    return digest;
  }

 private:
  const Context context_;
};

}  // namespace

Sha1Digest OpenSslDigests::sha1(std::string_view bytes) {
  Sha1Digest digest{};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), &size,
                 EVP_sha1(), nullptr) != 1 ||
      size != digest.size()) {
    fatal("the system's OpenSSL has no SHA-1");
  }
  return digest;
}

Sha256Digest OpenSslDigests::sha256(std::string_view bytes) {
  return digestOf({bytes});
}

// HMAC is written out by RFC 2104, because OpenSSL's own needs a second look-up and three
// allocations.
Sha256Digest OpenSslDigests::hmacSha256(std::string_view key, std::string_view bytes) {
  Sha256Digest shortened;
  if (key.size() > kBlock) {
    shortened = digestOf({key});
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

std::unique_ptr<Md5> OpenSslDigests::md5() {
  Context context(EVP_MD_CTX_new());
  if (EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1) return nullptr;
  return std::make_unique<OpenSslMd5>(std::move(context));
}

}  // namespace qx
