// A host in a process of its own, which the test kills.
//
// Threads: the test's main thread makes and uses it before this process has other threads.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace qx {

/// A child process that runs `work` and then waits to be killed. It is forked before this process
/// has other threads.
class HostProcess {
 public:
  explicit HostProcess(const std::function<void()>& work) {
    child_ = fork();
    if (child_ == 0) {
      work();
      pause();
      _exit(0);
    }
  }
  ~HostProcess() { kill(); }
  void kill() {
    if (child_ <= 0) return;
    ::kill(child_, SIGKILL);
    waitpid(child_, &status_, 0);
    child_ = -1;
  }
  /// True when nothing but our signal has ended the process.
  bool onlyKilled() const { return WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL; }

 private:
  pid_t child_ = -1;
  int status_ = 0;
};

}  // namespace qx
