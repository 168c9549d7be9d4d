#include "platforms/shared/FileSizeSignal.h"

#include <cerrno>
#include <ctime>

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
    constexpr timespec kAtOnce = {0, 0};
    while (::sigtimedwait(&signal_, nullptr, &kAtOnce) < 0 && errno == EINTR) {
    }
  }
  if (!wasBlocked_) ::pthread_sigmask(SIG_UNBLOCK, &signal_, nullptr);
  errno = code;
}

}  // namespace qx
