// A file system in memory that can be told to fail.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/Mutex.h"

namespace qx {

class MemoryFiles : public Files {
 public:
  /// What a fault can be set on.
  enum class Operation { createDirectory, list, read, write, rename, remove };

  /// Begins with the empty directories "/" and "/documents"; the latter is the documents directory.
  MemoryFiles();

  std::vector<std::string> documentDirectories() override;
  PathKind kind(const std::string& path) override;
  std::optional<Error> createDirectory(const std::string& path) override;
  Result<std::vector<std::string>> list(const std::string& path) override;
  Result<Data> read(const std::string& path) override;
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override;
  std::optional<Error> rename(const std::string& from, const std::string& to) override;
  std::optional<Error> remove(const std::string& path) override;

  void setDocumentDirectories(std::vector<std::string> directories);
  /// From now on `operation` on exactly `path` (a rename: its source) fails with EIO and changes
  /// nothing.
  void fail(Operation operation, const std::string& path);
  /// Every `operation` fails.
  void failAll(Operation operation);
  void clearFaults();

  /// The content of a file; nothing when there is none.
  std::optional<std::string> text(const std::string& path);
  /// Puts a file there, with the directories above it; asks no fault.
  void put(const std::string& path, std::string content);
  /// Puts a symbolic link there in place of what was, with the directories above it. It leads
  /// nowhere, as nothing follows it.
  void putLink(const std::string& path);
  /// Removes a file or a link, or a directory with all below it; asks no fault.
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
  /// Every createDirectory, write, rename and remove, in order.
  std::vector<Call> calls();
  /// How many writes to `path` succeeded.
  std::size_t writeCount(const std::string& path);

 private:
  bool fails(Operation operation, const std::string& path) const QX_REQUIRES(mutex_);
  PathKind kindLocked(const std::string& path) const QX_REQUIRES(mutex_);
  void makeDirectories(const std::string& path) QX_REQUIRES(mutex_);
  /// The link that an operation on the path would have to follow: on the way there, or there.
  std::optional<std::string> linkOn(const std::string& path) const QX_REQUIRES(mutex_);
  /// Likewise, for operations that take a link at the end for what it is.
  std::optional<std::string> linkAbove(const std::string& path) const QX_REQUIRES(mutex_);
  /// Notes the call and passes the error on.
  std::optional<Error> done(Call call, std::optional<Error> error) QX_REQUIRES(mutex_);

  Mutex mutex_;
  std::vector<std::string> documentDirectories_ QX_GUARDED_BY(mutex_) = {"/documents"};
  std::map<std::string, Data> files_ QX_GUARDED_BY(mutex_);
  std::set<std::string> directories_ QX_GUARDED_BY(mutex_) = {"/", "/documents"};
  std::set<std::string> links_ QX_GUARDED_BY(mutex_);
  std::set<std::pair<Operation, std::string>> faults_ QX_GUARDED_BY(mutex_);
  std::set<Operation> allFaults_ QX_GUARDED_BY(mutex_);
  std::vector<Call> calls_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
