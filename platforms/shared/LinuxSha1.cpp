#include "platforms/shared/LinuxSha1.h"

#include <openssl/evp.h>

#include "platform/Error.h"

namespace qx {

std::array<std::byte, 20> LinuxSha1::digest(const Data& bytes) {
  std::array<std::byte, 20> digest{};
  unsigned int size = 0;
  if (::EVP_Digest(bytes.bytes(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()),
                   &size, ::EVP_sha1(), nullptr) != 1 ||
      size != digest.size()) {
    fatal("the system's OpenSSL has no SHA-1");
  }
  return digest;
}

}  // namespace qx
