// The two sides that the upload bench compares: the library, driven through its actions as a host
// drives it, and a plain libcurl-multi loop that sends the same requests.
//
// Threads: a side is made and used by one thread, the first of its process; a process holds one
// side.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "bench/UploadSink.h"
#include "platform/Data.h"

namespace qx::bench {

class Side {
 public:
  virtual ~Side() = default;
  /// Uploads `object` `count` times, `inFlight` at a time, and returns when all have arrived. A
  /// failed upload ends the process.
  virtual void upload(const Data& object, std::int64_t count, int inFlight) = 0;
};

/// The whole library on the Linux platform. `directory` gets its documents.
std::unique_ptr<Side> librarySide(const UploadSink& sink, bool tls, const std::string& directory);

enum class LoopSigning {
  /// The same header values with every request: what sending alone costs.
  none,
  /// Over plain HTTP the payload's SHA-256 with every request, and a signature over every request:
  /// what the store's protocol makes everybody do.
  each,
};
std::unique_ptr<Side> loopSide(const UploadSink& sink, bool tls, LoopSigning signing);

}  // namespace qx::bench
