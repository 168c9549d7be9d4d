// A documents directory for one run alone: what a command keeps there is seen by no other run, and
// it sees nothing of theirs.
//
// The folder is locked while its process lives, so that a later run can tell the folder of a killed
// process from one in use.
// Threads: made by the main thread; `remove` may be called on any.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/Error.h"

namespace qx::app {

class ScratchFolder {
 public:
  /// Makes a folder for this user alone (0700) inside `documents`, so that a file moves out of it
  /// by a rename. `documents` is made when it is missing; the folders that killed runs of this user
  /// have left in it are removed.
  static Result<std::unique_ptr<ScratchFolder>> make(const std::string& documents);

  /// Absolute.
  const std::string& path() const { return path_; }
  /// The directory that the folder is in.
  const std::string& documents() const { return documents_; }
  /// Removes the folder with all that is in it.
  void remove() const;

 private:
  // The lock is never given back: it goes with the process.
  ScratchFolder(std::string documents, std::string path)
      : documents_(std::move(documents)), path_(std::move(path)) {}

  const std::string documents_;
  const std::string path_;
};

}  // namespace qx::app
