// Ends a thread that waits for a descriptor.
//
// Threads: one thread waits, and any other thread calls set().
#pragma once

namespace qx::app {

class StopEvent {
 public:
  StopEvent();
  ~StopEvent();
  StopEvent(const StopEvent&) = delete;
  StopEvent& operator=(const StopEvent&) = delete;

  /// From now on waitFor() returns false.
  void set();
  /// Waits until `fd` can be read or has ended. False once set() has been called.
  bool waitFor(int fd) const;

 private:
  const int fd_;
};

}  // namespace qx::app
