// A file system in memory. A test can make its operations fail.
//
//     MemoryFiles files;
//     files.put("/documents/a.txt", "hello");
//     files.fail(MemoryFiles::Operation::read, "/documents/a.txt");
//     files.read("/documents/a.txt");  // An error with the code EIO.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Mutex.h"

namespace qx {

class MemoryFiles : public Files {
 public:
  /// The operations that can fail.
  enum class Operation { lock, createDirectory, list, read, write, rename, remove };

  /// The file system has the empty directories "/" and "/documents" at first. The latter is the
  /// documents directory.
  MemoryFiles();

  std::vector<std::string> documentDirectories() override;
  PathKind kind(const std::string& path) override;
  Result<FileFacts> facts(const std::string& path) override;
  Result<std::unique_ptr<FileLock>> lock(const std::string& path) override;
  std::optional<Error> createDirectory(const std::string& path) override;
  Result<std::vector<std::string>> list(const std::string& path) override;
  Result<Data> read(const std::string& path) override;
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override;
  std::optional<Error> rename(const std::string& from, const std::string& to) override;
  std::optional<Error> remove(const std::string& path) override;

  void setDocumentDirectories(std::vector<std::string> directories);
  /// From now on `operation` fails with EIO and changes nothing on exactly this path. For a rename
  /// it is the path of the source.
  void fail(Operation operation, const std::string& path);
  /// From now on every `operation` fails.
  void failAll(Operation operation);
  void clearFaults();

  /// Sets the clock that gives the times of later writes; without one the times are 0. The clock
  /// must outlive the files.
  void setClock(Clock& clock);

  /// The content of a file, or nothing when there is no such file.
  std::optional<std::string> text(const std::string& path);
  /// Makes a file and the directories above it. No fault applies.
  void put(const std::string& path, std::string content);
  /// Puts a symbolic link in the place of what was there, and makes the directories above it. The
  /// link leads nowhere, because nothing follows it.
  void putLink(const std::string& path);
  /// Removes a file or a link, or a directory with its content. No fault applies.
  void erase(const std::string& path);
  /// The paths of all files, sorted.
  std::vector<std::string> paths();

  struct Call {
    Operation operation;
    std::string path;
    WriteMode mode = WriteMode::plain;
    Durability durability = Durability::cached;
    bool succeeded = false;
  };
  /// The calls of createDirectory, write, rename and remove, in order.
  std::vector<Call> calls();
  /// The number of successful writes to `path`.
  std::size_t writeCount(const std::string& path);

 private:
  class Lock;
  bool fails(Operation operation, const std::string& path) const QX_REQUIRES(mutex_);
  PathKind kindLocked(const std::string& path) const QX_REQUIRES(mutex_);
  void makeDirectories(const std::string& path) QX_REQUIRES(mutex_);
  /// The link that an operation on the path would have to follow, at the end of the path or before.
  std::optional<std::string> linkOn(const std::string& path) const QX_REQUIRES(mutex_);
  /// The same for operations that accept a link at the end of the path.
  std::optional<std::string> linkAbove(const std::string& path) const QX_REQUIRES(mutex_);
  /// Records the call and passes the error on.
  std::optional<Error> done(Call call, std::optional<Error> error) QX_REQUIRES(mutex_);

  Mutex mutex_;
  std::vector<std::string> documentDirectories_ QX_GUARDED_BY(mutex_) = {"/documents"};
  std::map<std::string, Data> files_ QX_GUARDED_BY(mutex_);
  std::map<std::string, double> times_ QX_GUARDED_BY(mutex_);
  /// Shared with the locks, which may outlive the files.
  const std::shared_ptr<Guarded<std::set<std::string>>> locked_ =
      std::make_shared<Guarded<std::set<std::string>>>();
  Clock* clock_ QX_GUARDED_BY(mutex_) = nullptr;
  std::set<std::string> directories_ QX_GUARDED_BY(mutex_) = {"/", "/documents"};
  std::set<std::string> links_ QX_GUARDED_BY(mutex_);
  std::set<std::pair<Operation, std::string>> faults_ QX_GUARDED_BY(mutex_);
  std::set<Operation> allFaults_ QX_GUARDED_BY(mutex_);
  std::vector<Call> calls_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
