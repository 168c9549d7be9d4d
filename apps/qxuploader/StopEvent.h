// Ends a thread that waits for a descriptor.
//
// Threads: one thread waits, any other calls set().
#pragma once

namespace qx::app {

class StopEvent {
 public:
  StopEvent();
  ~StopEvent();
  StopEvent(const StopEvent&) = delete;
  StopEvent& operator=(const StopEvent&) = delete;

  /// From now on waitFor() says false.
  void set();
  /// Waits until `fd` can be read or is at its end; false once set() was called.
  bool waitFor(int fd) const;

 private:
  const int fd_;
};

}  // namespace qx::app
