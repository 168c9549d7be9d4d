// Ctrl-C and its relatives, turned into a call.
//
//     Interrupts::block();
//     const Interrupts interrupts([&] { stop(); });
//
// Threads: `block` first of all, by the main thread, so that every later thread inherits it. An
// object has a thread of its own, which waits for the signals until the object is destroyed.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace qx::app {

class Interrupts {
 public:
  /// Keeps SIGINT, SIGTERM and SIGHUP from ending the process, and SIGPIPE from mattering.
  static void block();

  /// Calls `handler` on the watching thread at the first signal. A second one ends the process at
  /// once with status 130: for a person who does not want to wait.
  explicit Interrupts(std::function<void()> handler);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

 private:
  void watch();

  const std::function<void()> handler_;
  std::atomic<bool> ending_ = false;
  /// Last: it uses all of the above.
  std::thread thread_;
};

/// The exit status after an interruption.
inline constexpr int kInterrupted = 130;

}  // namespace qx::app
