// Counts the changes that this process makes to the file system, reports them, and can end the
// process at any of them.
//
// FileCalls.cpp defines the functions of the C library that change files anew, for the whole
// executable. Functions that read, examine or close files are not among them: a process that ends
// in one of these leaves the same files as one that ends at its next change.
// Threads: only for processes of one thread.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// From now on SIGKILL takes the place of the `n`th call; the first call is 1, and 0 means never.
/// With `half`, if that call is a write, half of its bytes are written before the process ends.
void killAtFileCall(int n, bool half);

/// Hears what this process does to files.
class FileCallObserver {
 public:
  virtual ~FileCallObserver() = default;
  /// A change is about to be made.
  virtual void before() = 0;
  /// The following calls have been made and have succeeded.
  virtual void opened(int fd, const std::string& path, int flags) = 0;
  virtual void wrote(int fd, std::string_view bytes) = 0;
  virtual void synced(int fd) = 0;
  virtual void renamed(const std::string& from, const std::string& to, bool exchanged) = 0;
  virtual void removed(const std::string& path) = 0;
  virtual void madeDirectory(const std::string& path) = 0;
};

/// Sets the observer from now on; null removes it. The observer must exist as long as it is set.
void observeFileCalls(FileCallObserver* observer);

}  // namespace qx
