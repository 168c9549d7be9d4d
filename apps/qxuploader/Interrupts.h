// Turns Ctrl-C and related signals into a call.
//
//     Interrupts::block();
//     const Interrupts interrupts([&] { stop(); });
//
// Threads: the main thread calls block() before anything else, so that every later thread inherits
// it. An object has a thread of its own that waits for the signals until the object is destroyed.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace qx::app {

class Interrupts {
 public:
  /// Keeps SIGINT, SIGTERM and SIGHUP from ending the process, and SIGPIPE from having an effect.
  static void block();

  /// Calls `handler` on the watching thread at the first signal. A second signal ends the process
  /// at once with status 130, for a person who does not want to wait.
  explicit Interrupts(std::function<void()> handler);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

 private:
  void watch();

  const std::function<void()> handler_;
  std::atomic<bool> ending_ = false;
  /// The last member, because the thread uses all members above.
  std::thread thread_;
};

/// The exit status after an interruption.
inline constexpr int kInterrupted = 130;

}  // namespace qx::app
