#include "fakes/MemoryFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace qx {
namespace {

/// The path with single separators and without one at its end.
std::string normal(const std::string& path) {
  std::string result;
  for (const char c : path) {
    if (c != '/' || result.empty() || result.back() != '/') result.push_back(c);
  }
  if (result.size() > 1 && result.back() == '/') result.pop_back();
  return result;
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

Error failure(const std::string& path, int code) {
  return {"Files", code, path + ": " + std::strerror(code)};
}

Error linkFailure(const std::string& link) {
  return {"Files", ELOOP, link + " is a symbolic link"};
}

}  // namespace

MemoryFiles::MemoryFiles() = default;

std::vector<std::string> MemoryFiles::documentDirectories() {
  MutexLock lock(mutex_);
  return documentDirectories_;
}

PathKind MemoryFiles::kind(const std::string& path) {
  MutexLock lock(mutex_);
  return kindLocked(normal(path));
}

Result<FileFacts> MemoryFiles::facts(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  if (const auto link = linkOn(at)) return linkFailure(*link);
  const auto file = files_.find(at);
  if (file == files_.end()) return failure(at, directories_.contains(at) ? EISDIR : ENOENT);
  const auto time = times_.find(at);
  return FileFacts{file->second.size(), time == times_.end() ? 0 : time->second};
}

class MemoryFiles::Lock : public FileLock {
 public:
  Lock(std::shared_ptr<Guarded<std::set<std::string>>> locked, std::string path)
      : locked_(std::move(locked)), path_(std::move(path)) {}
  ~Lock() override {
    locked_->update([this](std::set<std::string> paths) {
      paths.erase(path_);
      return paths;
    });
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  const std::shared_ptr<Guarded<std::set<std::string>>> locked_;
  const std::string path_;
};

Result<std::unique_ptr<FileLock>> MemoryFiles::lock(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  if (fails(Operation::lock, at)) return failure(at, EIO);
  if (const auto link = linkOn(at)) return linkFailure(*link);
  if (kindLocked(at) != PathKind::directory) {
    return failure(at, kindLocked(at) == PathKind::file ? ENOTDIR : ENOENT);
  }
  bool taken = false;
  locked_->update([&](std::set<std::string> paths) {
    taken = paths.insert(at).second;
    return paths;
  });
  if (!taken) return failure(at, EWOULDBLOCK);
  return std::unique_ptr<FileLock>(std::make_unique<Lock>(locked_, at));
}

void MemoryFiles::setClock(Clock& clock) {
  MutexLock lock(mutex_);
  clock_ = &clock;
}

std::optional<Error> MemoryFiles::createDirectory(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  const Call call{.operation = Operation::createDirectory, .path = at};
  if (fails(Operation::createDirectory, at)) return done(call, failure(at, EIO));
  if (const auto link = linkOn(at)) return done(call, linkFailure(*link));
  for (std::string above = at; above != "/"; above = parentOf(above)) {
    if (kindLocked(above) == PathKind::file) {
      return done(call, failure(at, above == at ? EEXIST : ENOTDIR));
    }
  }
  makeDirectories(at);
  return done(call, std::nullopt);
}

Result<std::vector<std::string>> MemoryFiles::list(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  if (fails(Operation::list, at)) return failure(at, EIO);
  if (const auto link = linkOn(at)) return linkFailure(*link);
  if (kindLocked(at) == PathKind::absent) return failure(at, ENOENT);
  if (kindLocked(at) == PathKind::file) return failure(at, ENOTDIR);
  std::vector<std::string> names;
  const auto add = [&](const std::string& each) {
    if (each != "/" && parentOf(each) == at) names.push_back(each.substr(each.rfind('/') + 1));
  };
  for (const auto& [each, content] : files_) add(each);
  for (const std::string& each : directories_) add(each);
  for (const std::string& each : links_) add(each);
  return names;
}

Result<Data> MemoryFiles::read(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  if (fails(Operation::read, at)) return failure(at, EIO);
  if (const auto link = linkOn(at)) return linkFailure(*link);
  if (at.find('\0') != std::string::npos) return failure(at, EINVAL);
  const auto file = files_.find(at);
  if (file != files_.end()) return file->second;
  return failure(at, kindLocked(at) == PathKind::directory ? EISDIR : ENOENT);
}

std::optional<Error> MemoryFiles::write(const std::string& path,
                                        std::span<const std::string_view> pieces, WriteMode mode,
                                        Durability durability) {
  std::string content;
  for (const std::string_view piece : pieces) content += piece;
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  const Call call{
      .operation = Operation::write, .path = at, .mode = mode, .durability = durability};
  if (fails(Operation::write, at)) return done(call, failure(at, EIO));
  if (const auto link = linkOn(at)) return done(call, linkFailure(*link));
  if (at.find('\0') != std::string::npos) return done(call, failure(at, EINVAL));
  if (kindLocked(at) == PathKind::directory) return done(call, failure(at, EISDIR));
  if (kindLocked(parentOf(at)) != PathKind::directory) {
    return done(call, failure(at, kindLocked(parentOf(at)) == PathKind::file ? ENOTDIR : ENOENT));
  }
  files_.insert_or_assign(at, Data(std::move(content)));
  if (clock_ != nullptr) times_[at] = clock_->now();
  return done(call, std::nullopt);
}

std::optional<Error> MemoryFiles::rename(const std::string& from, const std::string& to) {
  MutexLock lock(mutex_);
  const std::string source = normal(from);
  const std::string target = normal(to);
  const Call call{.operation = Operation::rename, .path = source};
  if (fails(Operation::rename, source)) return done(call, failure(source, EIO));
  if (const auto link = linkAbove(source)) return done(call, linkFailure(*link));
  if (const auto link = linkAbove(target)) return done(call, linkFailure(*link));
  const auto file = files_.find(source);
  const bool isLink = links_.contains(source);
  if (file == files_.end() && !isLink) return done(call, failure(source, ENOENT));
  if (kindLocked(target) == PathKind::directory) return done(call, failure(source, EISDIR));
  if (kindLocked(parentOf(target)) != PathKind::directory) {
    return done(call, failure(source, ENOENT));
  }
  if (source == target) return done(call, std::nullopt);
  links_.erase(target);
  if (isLink) {
    links_.erase(source);
    links_.insert(target);
    files_.erase(target);
  } else {
    const Data content = file->second;
    files_.erase(file);
    files_.insert_or_assign(target, content);
  }
  return done(call, std::nullopt);
}

std::optional<Error> MemoryFiles::remove(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  const Call call{.operation = Operation::remove, .path = at};
  if (fails(Operation::remove, at)) return done(call, failure(at, EIO));
  if (const auto link = linkAbove(at)) return done(call, linkFailure(*link));
  if (kindLocked(at) == PathKind::directory) return done(call, failure(at, EISDIR));
  if (files_.erase(at) + links_.erase(at) == 0) return done(call, failure(at, ENOENT));
  return done(call, std::nullopt);
}

void MemoryFiles::setDocumentDirectories(std::vector<std::string> directories) {
  MutexLock lock(mutex_);
  documentDirectories_ = std::move(directories);
}

void MemoryFiles::fail(Operation operation, const std::string& path) {
  MutexLock lock(mutex_);
  faults_.emplace(operation, normal(path));
}

void MemoryFiles::failAll(Operation operation) {
  MutexLock lock(mutex_);
  allFaults_.insert(operation);
}

void MemoryFiles::clearFaults() {
  MutexLock lock(mutex_);
  faults_.clear();
  allFaults_.clear();
}

std::optional<std::string> MemoryFiles::text(const std::string& path) {
  MutexLock lock(mutex_);
  const auto file = files_.find(normal(path));
  if (file == files_.end()) return std::nullopt;
  return std::string(file->second.text());
}

void MemoryFiles::put(const std::string& path, std::string content) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  makeDirectories(parentOf(at));
  files_.insert_or_assign(at, Data(std::move(content)));
}

void MemoryFiles::putLink(const std::string& path) {
  erase(path);
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  makeDirectories(parentOf(at));
  links_.insert(at);
}

void MemoryFiles::erase(const std::string& path) {
  MutexLock lock(mutex_);
  const std::string at = normal(path);
  const auto below = [&](const std::string& each) {
    return each == at || each.compare(0, at.size() + 1, at + "/") == 0;
  };
  std::erase_if(files_, [&](const auto& file) { return below(file.first); });
  std::erase_if(directories_, below);
  std::erase_if(links_, below);
}

std::vector<std::string> MemoryFiles::paths() {
  MutexLock lock(mutex_);
  std::vector<std::string> paths;
  for (const auto& [path, content] : files_) paths.push_back(path);
  return paths;
}

std::vector<MemoryFiles::Call> MemoryFiles::calls() {
  MutexLock lock(mutex_);
  return calls_;
}

std::size_t MemoryFiles::writeCount(const std::string& path) {
  const std::string at = normal(path);
  const std::vector<Call> all = calls();
  return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const Call& call) {
    return call.operation == Operation::write && call.path == at && call.succeeded;
  }));
}

bool MemoryFiles::fails(Operation operation, const std::string& path) const {
  return allFaults_.contains(operation) || faults_.contains({operation, path});
}

PathKind MemoryFiles::kindLocked(const std::string& path) const {
  if (linkOn(path)) return PathKind::link;
  if (directories_.contains(path)) return PathKind::directory;
  return files_.contains(path) ? PathKind::file : PathKind::absent;
}

std::optional<std::string> MemoryFiles::linkOn(const std::string& path) const {
  for (std::string each = path; each != "/" && !each.empty(); each = parentOf(each)) {
    if (links_.contains(each)) return each;
  }
  return std::nullopt;
}

std::optional<std::string> MemoryFiles::linkAbove(const std::string& path) const {
  return linkOn(parentOf(path));
}

void MemoryFiles::makeDirectories(const std::string& path) {
  for (std::string each = path; each != "/"; each = parentOf(each)) directories_.insert(each);
}

std::optional<Error> MemoryFiles::done(Call call, std::optional<Error> error) {
  call.succeeded = !error;
  calls_.push_back(std::move(call));
  return error;
}

}  // namespace qx
