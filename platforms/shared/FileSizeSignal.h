// Keeps the signal of the file-size limit away from a write.
//
// A write beyond the limit of the process (RLIMIT_FSIZE) fails with EFBIG, and the kernel sends
// SIGXFSZ to the writing thread, which ends the process unless the host deals with it.
// Threads: an object belongs to the thread that made it. It does not change the signal handling of
// the process.
#pragma once

#include <signal.h>

namespace qx {

/// As long as the object exists, a write of this thread beyond the limit fails with EFBIG and has
/// no other effect.
class FileSizeSignalBlock {
 public:
  FileSizeSignalBlock();
  /// Takes the signal that a write has caused, and unblocks the signal unless the host had blocked
  /// it. A signal that was pending before is left to the host.
  ~FileSizeSignalBlock();
  FileSizeSignalBlock(const FileSizeSignalBlock&) = delete;
  FileSizeSignalBlock& operator=(const FileSizeSignalBlock&) = delete;

 private:
  sigset_t signal_;
  bool wasPending_;
  bool wasBlocked_;
};

}  // namespace qx
