// SHA-1 by OpenSSL.
//
// Threads: no state; may be called from any thread.
#pragma once

#include <array>
#include <cstddef>

#include "platform/Formats.h"

namespace qx {

class LinuxSha1 : public Sha1 {
 public:
  std::array<std::byte, 20> digest(const Data& bytes) override;
};

}  // namespace qx
