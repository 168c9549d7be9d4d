// Keeps the signal of the file-size limit away from a write.
//
// A write beyond the limit of the process (RLIMIT_FSIZE) fails with EFBIG, and the kernel sends
// SIGXFSZ to the writing thread, which ends the process unless the host deals with it.
// Threads: one object belongs to the thread that made it. It changes no signal handling of the
// process.
#pragma once

#include <signal.h>

namespace qx {

/// While it lives, a write of this thread beyond the limit fails with EFBIG and nothing else.
class FileSizeSignalBlock {
 public:
  FileSizeSignalBlock();
  /// Takes the signal that a write has caused, and unblocks it unless the host had blocked it. One
  /// that was pending before is left to the host.
  ~FileSizeSignalBlock();
  FileSizeSignalBlock(const FileSizeSignalBlock&) = delete;
  FileSizeSignalBlock& operator=(const FileSizeSignalBlock&) = delete;

 private:
  sigset_t signal_;
  bool wasPending_;
  bool wasBlocked_;
};

}  // namespace qx
