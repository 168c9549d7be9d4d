// One user's background uploads on disk: a file per task, and a log of them.
//
// Threads: every operation may be called from any thread. `stroageFileLock` guards changes to the
// in-memory log, `snycLock` orders the writing of the log file; they are never held together. Reads
// of the in-memory log take neither: it is published as a whole and never changed in place.
// Errors: an absent value or false; nothing is thrown. Logged is what opening finds amiss, and that
// a symbolic link in place of directory, data file or log was refused.
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

/// What a storage does about the tasks of earlier runs.
enum class StoredTasks {
  /// The in-memory log starts empty: the first write drops the entries of earlier runs.
  startEmpty,
  /// It starts with the entries of the log file, and what is stored is synced to the disk.
  resume,
  /// The log file is read when it is asked for, and nothing is changed on disk.
  readOnly,
};

class UserTaskStorage {
 public:
  /// Creates the user's directory. `startEmpty` does not read the log file. `resume` does; it sets
  /// a damaged log aside as "logs.plist.damaged-<n>", keeps each entry that still reads and writes
  /// one log record, drops entries without a data file, and moves data files without an entry into
  /// a folder "unlogged-<n>" with one log record. While a log is there that cannot be read, or not
  /// be set aside, each write and readLogAgain() try again; a write fails until then: what stands
  /// in the log is never written over.
  /// `platform` must outlive the storage.
  UserTaskStorage(const Platform& platform, std::string userId,
                  StoredTasks storedTasks = StoredTasks::startEmpty);
  UserTaskStorage(const UserTaskStorage&) = delete;
  UserTaskStorage& operator=(const UserTaskStorage&) = delete;

  /// Creates the user directory when it is missing; a failure is printed on the console.
  void createUserRootDir();
  bool userDirPathExist() const;
  /// Writes a task's bytes into the user directory and yields its stored counterpart. A FileTask is
  /// stored already and comes back as it is. Nothing when there are no bytes or the write fails,
  /// as it does when the user directory is gone.
  std::shared_ptr<FileTask> storageFile(const std::shared_ptr<Task>& task);
  /// Records the task in the log and writes the log file. False, and the log file as it was, for a
  /// task whose texts no property list can hold; the in-memory log knows it then all the same, so
  /// that remove() finds its file.
  bool storageLog(const FileTask& task);
  /// Writes the whole in-memory log to the log file. Callers that wait for one another share a
  /// write: it is enough that one that began after the call has succeeded.
  bool syncLog();
  /// Stores a task that is not: storageFile(), then storageLog(). A failure leaves nothing behind.
  Result<std::shared_ptr<FileTask>> store(const std::shared_ptr<Task>& task);
  /// Records a stored task in the in-memory log alone; the next syncLog() writes it. False for a
  /// task that cannot be recorded.
  bool update(const FileTask& task);
  /// Reads the log file again, and writes it, if that has not succeeded since the opening.
  void readLogAgain();
  /// The log file as it is on disk; empty when it is missing or malformed.
  AWSLogMap localLogs() const;
  /// The same; a missing log is an empty one, a malformed one is an error.
  Result<AWSLogMap> readLog() const;
  /// A task for every usable entry of the log file, in no order. Entries whose file lies outside
  /// the user's directory are not usable; a resuming storage leaves out damaged ones as well.
  std::vector<std::shared_ptr<FileTask>> localTasks() const;
  /// The same, or why the log cannot be read.
  Result<std::vector<std::shared_ptr<FileTask>>> readTasks() const;
  const std::string& userId() const { return userId_; }
  /// A task rebuilt from a log entry; nothing when the entry lacks what it takes.
  std::shared_ptr<FileTask> task(const std::string& filename, const AWSLogEntry* info) const;
  /// It was opened with StoredTasks::resume.
  bool resumes() const { return durability_ == Durability::synced; }
  /// The in-memory log knows the file name.
  bool contains(const std::string& filename) const { return find(filename) != nullptr; }
  /// The in-memory log's entry of a file name.
  std::optional<AWSLogEntry> entry(const std::string& filename) const;
  /// The data file of a task in the in-memory log, relative to the documents directory.
  std::optional<std::string> filePath(const std::string& filename) const;
  /// Removes a task's data file and its entry. False when the in-memory log does not know it.
  bool remove(const std::string& filename);
  /// Removes the data files and the entries of many tasks, writing the log once. Yields those that
  /// could not be removed, with the reason.
  std::map<std::string, Error> removeAll(const std::vector<std::string>& filenames);
  /// Why what is stored cannot be opened now; nothing when it can.
  std::optional<Error> fault() const { return fault_.load(); }
  /// Removes one file of the user's directory, its path relative to the documents directory. A
  /// missing file is success.
  bool deleteFile(const std::string& path);

 private:
  friend class UserTaskStorages;

  /// One entry; never changed once it is published. Small, for many may wait.
  struct Record {
    std::string filename;
    /// Key and dictionary as they stand in the log file; empty when no property list can hold
    /// them, and then the entry is left out of the log file.
    std::string text;
    /// The values that a reader of the text may find as another kind of number: a float, say.
    /// Everything when there is no text; most often null.
    std::unique_ptr<const AWSLogEntry> untold;
  };
  /// Sorted by file name.
  using Records = std::vector<std::shared_ptr<const Record>>;

  /// Empty when no property list can hold them.
  std::string textOf(const std::string& filename, const AWSLogEntry& entry) const;
  std::shared_ptr<const Record> makeRecord(const std::string& filename,
                                           const AWSLogEntry& entry) const;
  std::shared_ptr<const Record> find(const std::string& filename) const;
  /// Puts a record in place of the earlier one; null removes that.
  void change(const std::string& filename, std::shared_ptr<const Record> record);
  /// Adds the records, sorted by file name, of files that the in-memory log does not know.
  void add(const Records& records);
  /// Waits for a write that holds what the caller has changed, or makes one.
  bool writeShared();
  /// Only by the one whose turn it is.
  bool writeLog();

  struct Unreported {};
  /// Does not log what it finds: report() does.
  UserTaskStorage(const Platform& platform, std::string userId, StoredTasks storedTasks,
                  Unreported unreported);
  /// Without the log record.
  void makeUserRootDir();
  /// Keeps the message of a log record for report().
  void note(std::string message);
  /// Takes the lock of the user's directory unless this storage has it.
  bool takeLock();
  /// Notes that a symbolic link was refused, if that is what the error says.
  void noteRefusedLink(const Error& error);
  /// Writes the log records whose messages were noted. Under no lock: a logger may do anything,
  /// upload included.
  void report();

  enum class Resumed {
    /// A log is there that cannot be read or not be set aside: it must not be written over.
    no,
    /// The log file says what the in-memory log says.
    asItStands,
    /// It does not: damage was left out, or entries without a data file.
    changed,
  };
  /// Takes the entries of the log file into the in-memory log, where it does not know better.
  /// `opening`: before anything is stored.
  Resumed resumeLog(bool opening);
  /// The usable ones of the entries that still stand whole in a damaged log.
  AWSLogMap wholeEntries(const ScannedLog& scanned, const AWSLogMap& decoded) const;
  bool setAside(const Data& damagedLog);
  /// Removes the halves of atomic writes that crashes have left, given the names in the user
  /// directory.
  void removeUnfinishedWrites(const std::vector<std::string>& names);
  /// Those of the names in the user directory that are of data files which no entry names.
  std::vector<std::string> unloggedFiles(const std::vector<std::string>& names) const;
  /// Moves them into a folder of their own.
  void moveAside(const std::vector<std::string>& unlogged);
  /// The entry is one that this storage could have written.
  bool isUsable(const std::string& filename, const AWSLogEntry& entry) const;
  std::string relativePath(const std::string& filename) const;
  std::string userDirPath() const;
  std::string logPath() const;
  /// storageFile(), storageLog() and deleteFile() with the reason of a failure.
  Result<std::shared_ptr<FileTask>> writeFile(const std::shared_ptr<Task>& task);
  std::optional<Error> writeEntry(const FileTask& task);
  /// Why a write of the log has just failed.
  Error whyUnwritten() const;
  std::optional<Error> eraseFile(const std::string& path);
  /// `filename` can be a data file beside the log.
  bool isDataFileName(const std::string& filename) const;
  /// `path`, relative to the documents directory, is a data file of this user.
  bool isDataFilePath(const std::string& path) const;

  const Platform& platform_;
  const std::string userId_;
  const Durability durability_;
  Guarded<std::optional<Error>> fault_;
  /// Of the latest write of the log.
  Guarded<std::optional<Error>> writeError_;
  /// Of a storage that resumes: no other process changes the user's directory. Taken by the
  /// constructor, or by the one whose turn it is to write.
  std::unique_ptr<FileLock> lock_;
  Guarded<std::shared_ptr<const Records>> logsMap_{std::make_shared<const Records>()};
  Mutex stroageFileLock_;
  /// Orders the writes of the log file: `writing_` says that one is under way. The mutex itself is
  /// held for moments only, so that a caller whose change is on disk returns at once, also when the
  /// next write has already begun.
  Mutex snycLock_;
  Condition writeEnded_;
  bool writing_ QX_GUARDED_BY(snycLock_) = false;
  /// Numbers the writes: how many began, and which one succeeded last.
  std::uint64_t writesBegun_ QX_GUARDED_BY(snycLock_) = 0;
  std::uint64_t lastGoodWrite_ QX_GUARDED_BY(snycLock_) = 0;
  /// Messages of log records that are to be written.
  std::vector<std::string> unreported_ QX_GUARDED_BY(snycLock_);
  /// The log file may be replaced. Written by the constructor, then by the one whose turn it is to
  /// write.
  std::atomic<bool> resumed_ = true;
};

/// Opens the storages of a library's users.
///
/// Threads: open may be called from any thread.
class UserTaskStorages {
 public:
  /// `platform` must outlive the storages.
  explicit UserTaskStorages(const Platform& platform) : platform_(platform) {}

  /// A new storage that starts empty; or the resuming storage of the user: the one that is still in
  /// use, if any, so that two of them never undo each other's entries.
  std::shared_ptr<UserTaskStorage> open(const std::string& userId, StoredTasks storedTasks);

 private:
  const Platform& platform_;
  Mutex mutex_;
  std::map<std::string, std::weak_ptr<UserTaskStorage>> resumed_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
