// Brings the reports of one transfer to the completion queue: progress reports in order, then one
// report of the end, and nothing after it. A progress report that has not run when the next one
// comes is dropped.
//
// Threads: one thread at a time calls progress and finish. The work that they are given runs on the
// queue, one piece at a time.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace qx {

class Delivery : public std::enable_shared_from_this<Delivery> {
 public:
  explicit Delivery(DispatchQueue& queue) : queue_(queue) {}

  /// Enqueues a report, in place of an earlier one that has not run yet.
  void progress(Work report) { add(std::move(report), false); }
  void finish(Work end) { add(std::move(end), true); }

 private:
  void add(Work work, bool end) QX_EXCLUDES(mutex_) {
    {
      MutexLock lock(mutex_);
      (end ? end_ : report_) = std::move(work);
      if (scheduled_) return;
      scheduled_ = true;
    }
    queue_.async([self = shared_from_this()] { self->run(); });
  }

  void run() QX_EXCLUDES(mutex_) {
    while (true) {
      Work next;
      {
        MutexLock lock(mutex_);
        if (report_) {
          next = std::exchange(report_, nullptr);
        } else if (end_) {
          next = std::exchange(end_, nullptr);
        } else {
          scheduled_ = false;
          return;
        }
      }
      next();
    }
  }

  DispatchQueue& queue_;
  Mutex mutex_;
  Work report_ QX_GUARDED_BY(mutex_);
  Work end_ QX_GUARDED_BY(mutex_);
  bool scheduled_ QX_GUARDED_BY(mutex_) = false;
};

}  // namespace qx
