// A mutex that clang's thread-safety analysis understands, and the annotations that go with it.
//
// Threads: what a mutex is for. Members say which mutex guards them with QX_GUARDED_BY, and the
// clang build (-Wthread-safety -Werror) rejects an access without it.
#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

#if defined(__clang__)
#define QX_ANNOTATION(x) __attribute__((x))
#else
#define QX_ANNOTATION(x)
#endif
#define QX_GUARDED_BY(mutex) QX_ANNOTATION(guarded_by(mutex))
#define QX_REQUIRES(...) QX_ANNOTATION(requires_capability(__VA_ARGS__))
#define QX_EXCLUDES(...) QX_ANNOTATION(locks_excluded(__VA_ARGS__))
#define QX_NO_THREAD_SAFETY_ANALYSIS QX_ANNOTATION(no_thread_safety_analysis)

namespace qx {

class QX_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  void lock() QX_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() QX_ANNOTATION(release_capability()) { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

/// Holds a mutex for a scope.
class QX_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) QX_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() QX_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// A condition variable on a Mutex. Waits may wake early: call them in a loop on the condition.
class Condition {
 public:
  void wait(Mutex& mutex) QX_REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }
  /// False when `deadline` passed.
  template <typename TimePoint>
  bool waitUntil(Mutex& mutex, const TimePoint& deadline) QX_REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    const bool woken = condition_.wait_until(held, deadline) == std::cv_status::no_timeout;
    held.release();
    return woken;
  }
  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

/// A value that is read and replaced as a whole from any thread. `load` copies it out, so keep T
/// cheap to copy: a handle, a small record, a callback.
template <typename T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : value_(std::move(value)) {}
  T load() const QX_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return value_;
  }
  /// The previous value is destroyed after the lock is released, for its destructor may do
  /// anything.
  void store(T value) QX_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    std::swap(value_, value);
  }
  /// Replaces the value by what `change` makes of it, in one step. `change` runs under the lock, so
  /// it calls nobody.
  template <typename Change>
  void update(const Change& change) QX_EXCLUDES(mutex_) {
    T value{};  // Takes what is replaced, and is destroyed after the lock is released.
    MutexLock lock(mutex_);
    value = change(std::as_const(value_));
    std::swap(value_, value);
  }

 private:
  mutable Mutex mutex_;
  T value_ QX_GUARDED_BY(mutex_){};
};

}  // namespace qx
