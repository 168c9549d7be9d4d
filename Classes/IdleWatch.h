// Tells callers that wait for it that the library has nothing under way any more.
//
//     idle.begin();                      // An image report is sent.
//     idle.end();                        // Its answer has come.
//     idle.whenIdle([] { finish(); });   // Called once nothing runs or waits.
//
// Threads: every operation may be called from any thread. Cost: begin() and end() count; nothing
// else is done while nobody waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

#include "Classes/UploadEvents.h"
#include "platform/Mutex.h"

namespace qx {

class IdleWatch {
 public:
  /// `nothingWaits` says whether the queue of uploads is empty and nothing is stored that will be
  /// tried again. It may read files and runs on the queue of `events`, which must outlive the
  /// watch.
  IdleWatch(UploadEvents& events, std::function<bool()> nothingWaits);

  /// Counts an operation that the queue of uploads does not know: a direct upload, a download, an
  /// image report.
  void begin() { ++underWay_; }
  void end();
  /// Called after any other change that may leave nothing to do: an upload of the queue has ended,
  /// was cancelled or was dropped.
  void changed();
  /// Calls `complete` once, on the queue of the events, as soon as nothing runs or waits.
  void whenIdle(std::function<void()> complete);

 private:
  void look();

  UploadEvents& events_;
  const std::function<bool()> nothingWaits_;
  std::atomic<std::int64_t> underWay_ = 0;
  std::atomic<bool> somebodyWaits_ = false;
  Mutex lock_;
  std::vector<std::function<void()>> waiting_ QX_GUARDED_BY(lock_);
};

}  // namespace qx
