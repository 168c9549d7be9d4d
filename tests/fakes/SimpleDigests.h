// The digests, written out from their definitions.
//
//     SimpleDigests digests;
//     const Sha256Digest digest = digests.sha256("payload");
//
// Threads: as in Digests.h. The class has no state.
#pragma once

#include "platform/Digests.h"

namespace qx {

class SimpleDigests : public Digests {
 public:
  Sha1Digest sha1(std::string_view bytes) override;
  Sha256Digest sha256(std::string_view bytes) override;
  Sha256Digest hmacSha256(std::string_view key, std::string_view bytes) override;
  std::unique_ptr<Md5> md5() override;
};

}  // namespace qx
