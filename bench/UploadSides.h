// The sides that the upload benchmark compares: the library, driven through its actions as a host
// drives it, and plain libcurl-multi loops that send the same requests.
//
// Threads: the first thread of a process makes and uses a side. A process has one side.
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
  /// Uploads `object` `count` times, `inFlight` uploads at a time, and returns when all have
  /// arrived. A failed upload ends the process.
  virtual void upload(const Data& object, std::int64_t count, int inFlight) = 0;
};

/// The whole library on the Linux platform. `directory` is for its documents.
std::unique_ptr<Side> librarySide(const UploadSink& sink, bool tls, const std::string& directory);

enum class LoopSigning {
  /// Sends the same header values with every request. This shows what sending alone costs.
  none,
  /// Signs every request and, over plain HTTP, hashes the payload of every request. The store's
  /// protocol asks every client for this.
  each,
};
std::unique_ptr<Side> loopSide(const UploadSink& sink, bool tls, LoopSigning signing);

}  // namespace qx::bench
