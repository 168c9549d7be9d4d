// One user's background uploads on disk: a file per task, and a log of them.
//
// Threads: every operation may be called from any thread. `stroageFileLock` guards changes to the
// in-memory log, `snycLock` orders the writing of the log file; they are never held together.
// Errors: an absent value or false; nothing is thrown or logged.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/AWSBasicParameter.h"
#include "Classes/Task.h"

namespace qx {

class UserTaskStorage {
 public:
  /// Creates the user's directory. Does not read the log file.
  explicit UserTaskStorage(std::string userId);
  ~UserTaskStorage();
  UserTaskStorage(const UserTaskStorage&) = delete;
  UserTaskStorage& operator=(const UserTaskStorage&) = delete;

  /// Creates the user directory when it is missing; a failure is printed on standard output.
  void createUserRootDir();
  bool userDirPathExist() const;
  /// Writes a task's bytes into the user directory and yields its stored counterpart. A FileTask is
  /// stored already and comes back as it is. Nothing when there are no bytes or the write fails.
  std::shared_ptr<FileTask> storageFile(const std::shared_ptr<Task>& task);
  /// Records the task in the log and writes the log file.
  bool storageLog(const FileTask& task);
  /// Writes the whole in-memory log to the log file.
  bool syncLog();
  /// The log file as it is on disk; empty when it is missing or malformed.
  AWSLogMap localLogs() const;
  /// A task for every usable entry of the log file, in no order.
  std::vector<std::shared_ptr<FileTask>> localTasks() const;
  /// A task rebuilt from a log entry; nothing when the entry lacks what it takes.
  static std::shared_ptr<FileTask> task(const std::string& filename, const AWSLogEntry* info);
  /// The in-memory log's entry of a file name.
  std::optional<AWSLogEntry> entry(const std::string& filename) const;
  /// The data file of a task in the in-memory log, relative to the documents directory.
  std::optional<std::string> filePath(const std::string& filename) const;
  /// Removes a task's data file and its entry. False when the in-memory log does not know it.
  bool remove(const std::string& filename);
  /// Removes one file, its path relative to the documents directory. A missing file is success.
  bool deleteFile(const std::string& path);

 private:
  struct State;
  const std::string userId_;
  const std::unique_ptr<State> state_;
};

}  // namespace qx
