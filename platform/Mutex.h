// A mutex that clang's thread-safety analysis understands, and the annotations that go with it. The
// clang build (-Wthread-safety -Werror) rejects an access to a guarded member without its mutex.
//
//     Mutex mutex_;
//     int count_ QX_GUARDED_BY(mutex_) = 0;
//     void increase() { MutexLock lock(mutex_); ++count_; }
//
// Threads: every operation may be called from any thread.
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

/// A condition variable for a Mutex. A wait may end early, so that callers wait in a loop that
/// checks their condition.
class Condition {
 public:
  void wait(Mutex& mutex) QX_REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }
  /// False when `deadline` has passed.
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

/// A value that any thread may read and replace as a whole. load() copies the value, so T should be
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
  /// The previous value is destroyed after the lock has been released, because its destructor may
  /// do anything.
  void store(T value) QX_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    std::swap(value_, value);
  }
  /// Replaces the value, in one step, by the result of `change`. `change` runs under the lock, so
  /// that it must not call foreign code.
  template <typename Change>
  void update(const Change& change) QX_EXCLUDES(mutex_) {
    T value{};  // Takes the previous value, and is destroyed after the lock has been released.
    MutexLock lock(mutex_);
    value = change(std::as_const(value_));
    std::swap(value_, value);
  }

 private:
  mutable Mutex mutex_;
  T value_ QX_GUARDED_BY(mutex_){};
};

}  // namespace qx
