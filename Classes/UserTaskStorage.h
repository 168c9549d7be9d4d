// The background uploads of one user on the disk: a file for each task, and a log of all tasks.
//
// Threads: every operation may be called from any thread. `stroageFileLock` guards changes to the
// in-memory log, `snycLock` orders the writing of the log file; they are never held together. Reads
// of the in-memory log take neither: it is published as a whole and never changed in place.
// Errors: operations yield an absent value or false; they never throw. Log records tell what is
// amiss when a storage opens, and which symbolic links in place of the directory, a data file or
// the log were refused.
// Safety: a user id, a file name or a recorded path that would lead out of the user's directory, or
// to the log file itself, never reaches the file system; the operation fails instead.
// The bytes on disk: docs/on-disk-format.md.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/AWSBasicParameter.h"
#include "Classes/Task.h"
#include "platform/Files.h"
#include "platform/Mutex.h"
#include "platform/Platform.h"

namespace qx {

struct ScannedLog;

/// The way a storage treats the tasks of earlier runs.
enum class StoredTasks {
  /// The in-memory log starts empty, so that the first write drops the entries of earlier runs.
  startEmpty,
  /// The in-memory log starts with the entries of the log file, and stored tasks are synced to the
  /// disk.
  resume,
  /// The log file is read when it is asked for, and nothing is changed on the disk.
  readOnly,
};

class UserTaskStorage {
 public:
  /// Creates the user's directory. `startEmpty` does not read the log file; `resume` does. A
  /// damaged log is then copied to "logs.plist.damaged-<n>", every entry that can still be read is
  /// kept, and one log record is written. Entries without a data file are dropped. Data files
  /// without an entry are moved into a folder "unlogged-<n>", with one log record. As long as a log
  /// exists that cannot be read or copied, each write and readLogAgain() try again, and a write
  /// fails until that succeeds, so that the log is never overwritten. `platform` must outlive the
  /// storage.
  UserTaskStorage(const Platform& platform, std::string userId,
                  StoredTasks storedTasks = StoredTasks::startEmpty);
  UserTaskStorage(const UserTaskStorage&) = delete;
  UserTaskStorage& operator=(const UserTaskStorage&) = delete;

  /// Creates the user directory when it is missing. A failure is printed on the console.
  void createUserRootDir();
  bool userDirPathExist() const;
  /// Writes a task's bytes into the user directory and yields the stored task. A FileTask is stored
  /// already and is returned as it is. Nothing when the task has no bytes or the write fails, for
  /// example because the user directory does not exist.
  std::shared_ptr<FileTask> storageFile(const std::shared_ptr<Task>& task);
  /// Records the task in the log and writes the log file. For a task whose texts no property list
  /// can hold it yields false and leaves the log file as it was; the in-memory log knows the task,
  /// so that remove() finds its file.
  bool storageLog(const FileTask& task);
  /// Writes the whole in-memory log to the log file. Callers that wait for one another share a
  /// write: a write that began after the call and succeeded is enough.
  bool syncLog();
  /// Stores a task that is not stored: storageFile(), then storageLog(). A failure leaves nothing
  /// behind.
  Result<std::shared_ptr<FileTask>> store(const std::shared_ptr<Task>& task);
  /// Records a stored task in the in-memory log alone; the next syncLog() writes it. False when the
  /// task cannot be recorded.
  bool update(const FileTask& task);
  /// Reads the log file again and writes it, unless that has succeeded since the storage was
  /// opened.
  void readLogAgain();
  /// The log in the file on the disk. Empty when the file is missing or malformed.
  AWSLogMap localLogs() const;
  /// The same, but a malformed log is an error. A missing log is empty.
  Result<AWSLogMap> readLog() const;
  /// The tasks of all usable entries of the log file, in no particular order. An entry whose file
  /// lies outside the user's directory is not usable. A resuming storage leaves damaged entries out
  /// as well.
  std::vector<std::shared_ptr<FileTask>> localTasks() const;
  struct LoggedTasks {
    std::vector<std::shared_ptr<FileTask>> tasks;
    /// The tasks whose entries name a file outside the user's directory. They are never uploaded.
    std::vector<std::shared_ptr<FileTask>> strays;
  };
  /// The tasks of the log file and the strays, or the error because of which the log cannot be
  /// read.
  Result<LoggedTasks> readTasks() const;
  const std::string& userId() const { return userId_; }
  /// Rebuilds the task of a log entry. Nothing when the entry lacks a required value.
  std::shared_ptr<FileTask> task(const std::string& filename, const AWSLogEntry* info) const;
  /// True when the storage was opened with StoredTasks::resume.
  bool resumes() const { return durability_ == Durability::synced; }
  /// True when the in-memory log knows the file name.
  bool contains(const std::string& filename) const { return find(filename) != nullptr; }
  /// The entry of a file name in the in-memory log.
  std::optional<AWSLogEntry> entry(const std::string& filename) const;
  /// The data file of a task in the in-memory log, relative to the documents directory.
  std::optional<std::string> filePath(const std::string& filename) const;
  /// Removes a task's data file and its entry. False when the in-memory log does not know the task.
  bool remove(const std::string& filename);
  /// Removes the data files and the entries of many tasks and writes the log once. Yields the tasks
  /// that could not be removed, with the reasons.
  std::map<std::string, Error> removeAll(const std::vector<std::string>& filenames);
  /// The reason why the stored tasks cannot be opened now, or nothing.
  std::optional<Error> fault() const { return fault_.load(); }
  /// Removes a file of the user's directory. Its path is relative to the documents directory.
  /// Succeeds when the file is missing.
  bool deleteFile(const std::string& path);

 private:
  friend class UserTaskStorages;

  /// An entry, which never changes once it is published. It is small, because many entries may
  /// wait.
  struct Record {
    std::string filename;
    /// The key and the dictionary as the log file has them. Empty when no property list can hold
    /// them; the log file then has no such entry.
    std::string text;
    /// The values that reading the text would not yield unchanged, such as a float. All values when
    /// there is no text. Mostly null.
    std::unique_ptr<const AWSLogEntry> untold;
  };
  /// The entries, sorted by file name.
  using Records = std::vector<std::shared_ptr<const Record>>;

  /// The text of an entry. Empty when no property list can hold it.
  std::string textOf(const std::string& filename, const AWSLogEntry& entry) const;
  std::shared_ptr<const Record> makeRecord(const std::string& filename,
                                           const AWSLogEntry& entry) const;
  std::shared_ptr<const Record> find(const std::string& filename) const;
  /// Replaces the record of a file name. Null removes it.
  void change(const std::string& filename, std::shared_ptr<const Record> record);
  /// Adds the records, sorted by file name, of files that the in-memory log does not know.
  void add(const Records& records);
  /// Waits for a write that contains the changes of the caller, or makes one.
  bool writeShared();
  /// Called only by the thread whose turn it is to write.
  bool writeLog();

  struct Unreported {};
  /// Does not write log records: report() does.
  UserTaskStorage(const Platform& platform, std::string userId, StoredTasks storedTasks,
                  Unreported unreported);
  /// Does the same without the log record.
  void makeUserRootDir();
  /// Keeps the message of a log record for report().
  void note(std::string message);
  /// Takes the lock of the user's directory unless this storage has it.
  bool takeLock();
  /// Notes that a symbolic link was refused, if the error says so.
  void noteRefusedLink(const Error& error);
  /// Writes the noted log records. It holds no lock, because a logger may do anything, even upload.
  void report();

  enum class Resumed {
    /// A log exists that cannot be read or not be set aside. It must not be overwritten.
    no,
    /// The log file has the same entries as the in-memory log.
    asItStands,
    /// The log file has other entries: damaged ones, or entries without data files.
    changed,
  };
  /// Takes the entries of the log file into the in-memory log unless this has newer ones.
  /// `opening`: nothing has been stored yet.
  Resumed resumeLog(bool opening);
  /// The usable entries among those that are still whole in a damaged log.
  AWSLogMap wholeEntries(const ScannedLog& scanned, const AWSLogMap& decoded) const;
  bool setAside(const Data& damagedLog);
  /// Removes the halves of atomic writes that crashes have left. `names` are the names in the user
  /// directory.
  void removeUnfinishedWrites(const std::vector<std::string>& names);
  /// The names in the user directory that belong to data files without an entry.
  std::vector<std::string> unloggedFiles(const std::vector<std::string>& names) const;
  /// Moves these files into a new folder.
  void moveAside(const std::vector<std::string>& unlogged);
  /// True when this storage could have written the entry.
  bool isUsable(const std::string& filename, const AWSLogEntry& entry) const;
  std::string relativePath(const std::string& filename) const;
  std::string userDirPath() const;
  std::string logPath() const;
  /// storageFile(), storageLog() and deleteFile(), with the reason of a failure.
  Result<std::shared_ptr<FileTask>> writeFile(const std::shared_ptr<Task>& task);
  std::optional<Error> writeEntry(const FileTask& task);
  /// The reason why a write of the log has just failed.
  Error whyUnwritten() const;
  std::optional<Error> eraseFile(const std::string& path);
  /// True when `filename` can be a data file beside the log.
  bool isDataFileName(const std::string& filename) const;
  /// True when `path`, which is relative to the documents directory, is a data file of this user.
  bool isDataFilePath(const std::string& path) const;

  const Platform& platform_;
  const std::string userId_;
  const Durability durability_;
  Guarded<std::optional<Error>> fault_;
  /// The error of the latest write of the log.
  Guarded<std::optional<Error>> writeError_;
  /// For a storage that resumes: the lock that keeps other processes from changing the user's
  /// directory. The constructor takes it, or later the thread whose turn it is to write.
  std::unique_ptr<FileLock> lock_;
  Guarded<std::shared_ptr<const Records>> logsMap_{std::make_shared<const Records>()};
  Mutex stroageFileLock_;
  /// Orders the writes of the log file: `writing_` says that one is under way. The mutex itself is
  /// held for moments only, so that a caller whose changes are on the disk returns at once, even
  /// when the next write has begun.
  Mutex snycLock_;
  Condition writeEnded_;
  bool writing_ QX_GUARDED_BY(snycLock_) = false;
  /// The number of writes that have begun, and the number of the last one that has succeeded.
  std::uint64_t writesBegun_ QX_GUARDED_BY(snycLock_) = 0;
  std::uint64_t lastGoodWrite_ QX_GUARDED_BY(snycLock_) = 0;
  /// The messages of log records that have yet to be written.
  std::vector<std::string> unreported_ QX_GUARDED_BY(snycLock_);
  /// True when the log file may be replaced. The constructor writes it, later the thread whose turn
  /// it is to write.
  std::atomic<bool> resumed_ = true;
};

/// Opens the storages of the users of a library.
///
/// Threads: open() may be called from any thread.
class UserTaskStorages {
 public:
  /// `platform` must outlive the storages.
  explicit UserTaskStorages(const Platform& platform) : platform_(platform) {}

  /// Opens a new storage that starts empty, or the resuming storage of the user. If a resuming
  /// storage of the user is still in use, it is returned again, so that two storages never undo
  /// each other's entries.
  std::shared_ptr<UserTaskStorage> open(const std::string& userId, StoredTasks storedTasks);

 private:
  const Platform& platform_;
  Mutex mutex_;
  std::map<std::string, std::weak_ptr<UserTaskStorage>> resumed_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
