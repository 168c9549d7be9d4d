// Counts this process's changes to the file system, can end it at any one of them, and tells of
// them.
//
// The functions of the C library that change files are defined anew in FileCalls.cpp, for the whole
// executable. Reading, looking and closing are not among them: what they leave on the disk is what
// the change before them left, so an end there is an end at the next change.
// Threads: for processes of one thread.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// From now on: SIGKILL in place of the `n`th call (the first is 1). `half`: if that call is a
/// write, after half of its bytes are written. 0: never.
void killAtFileCall(int n, bool half);

/// Hears of what this process does to files.
class FileCallObserver {
 public:
  virtual ~FileCallObserver() = default;
  /// A change is about to be made.
  virtual void before() = 0;
  /// The rest: done, and successful.
  virtual void opened(int fd, const std::string& path, int flags) = 0;
  virtual void wrote(int fd, std::string_view bytes) = 0;
  virtual void synced(int fd) = 0;
  virtual void renamed(const std::string& from, const std::string& to, bool exchanged) = 0;
  virtual void removed(const std::string& path) = 0;
  virtual void madeDirectory(const std::string& path) = 0;
};

/// From now on; null ends it. The observer outlives its use.
void observeFileCalls(FileCallObserver* observer);

}  // namespace qx
