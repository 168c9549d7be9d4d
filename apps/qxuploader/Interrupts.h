// Ctrl-C and its relatives, turned into a call.
//
// Threads: `block` first of all, by the main thread, so that every later thread inherits it;
// `watch` starts a thread of its own that waits for the signals until the process ends.
#pragma once

#include <functional>

namespace qx::app {

class Interrupts {
 public:
  /// Keeps SIGINT, SIGTERM and SIGHUP from ending the process, and SIGPIPE from mattering.
  static void block();
  /// Calls `handler` on the watching thread at the first signal. A second one calls `lastly` and
  /// ends the process at once with status 130: for a person who does not want to wait.
  static void watch(std::function<void()> handler, std::function<void()> lastly);
};

/// The exit status after an interruption.
inline constexpr int kInterrupted = 130;

}  // namespace qx::app
