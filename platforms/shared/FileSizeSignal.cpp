#include "platforms/shared/FileSizeSignal.h"

#include <pthread.h>

#include <cerrno>

namespace qx {
namespace {

bool isPending() {
  sigset_t pending;
  ::sigemptyset(&pending);
  ::sigpending(&pending);
  return ::sigismember(&pending, SIGXFSZ) == 1;
}

}  // namespace

FileSizeSignalBlock::FileSizeSignalBlock() : wasPending_(isPending()) {
  ::sigemptyset(&signal_);
  ::sigaddset(&signal_, SIGXFSZ);
  sigset_t before;
  ::pthread_sigmask(SIG_BLOCK, &signal_, &before);
  wasBlocked_ = ::sigismember(&before, SIGXFSZ) == 1;
}

FileSizeSignalBlock::~FileSizeSignalBlock() {
  const int code = errno;
  if (!wasPending_ && isPending()) {
    // The pending signal may be one of the process, which another thread may take first. With a
    // signal of this thread's own the wait always ends at once, and a second signal changes
    // nothing.
    ::pthread_kill(::pthread_self(), SIGXFSZ);
    int taken = 0;
    ::sigwait(&signal_, &taken);
  }
  if (!wasBlocked_) ::pthread_sigmask(SIG_UNBLOCK, &signal_, nullptr);
  errno = code;
}

}  // namespace qx
