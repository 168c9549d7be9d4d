// For every log of an earlier run: no task leads out of the user's directory, opening the storage
// touches nothing outside it and loses no stored bytes, and the next log that is written is whole.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/LogScanner.h"
#include "Classes/UserTaskStorage.h"
#include "fakes/FakePlatform.h"
#include "platforms/shared/LibplistPropertyLists.h"

namespace {

using namespace qx;

const std::string kRoot = "aws-0011/u1/";
const std::string kLog = "/documents/" + kRoot + "logs.plist";
const std::string kOutside = "/documents/aws-0011/u2/a.jpg";

/// Files that are made anew for each input.
class FreshFiles : public Files {
 public:
  MemoryFiles& renew() {
    files_ = std::make_unique<MemoryFiles>();
    return *files_;
  }
  std::vector<std::string> documentDirectories() override { return files_->documentDirectories(); }
  PathKind kind(const std::string& path) override { return files_->kind(path); }
  Result<FileFacts> facts(const std::string& path) override { return files_->facts(path); }
  Result<std::unique_ptr<FileLock>> lock(const std::string& path) override {
    return files_->lock(path);
  }
  std::optional<Error> createDirectory(const std::string& path) override {
    return files_->createDirectory(path);
  }
  Result<std::vector<std::string>> list(const std::string& path) override {
    return files_->list(path);
  }
  Result<Data> read(const std::string& path) override { return files_->read(path); }
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    return files_->write(path, pieces, mode, durability);
  }
  std::optional<Error> rename(const std::string& from, const std::string& to) override {
    return files_->rename(from, to);
  }
  std::optional<Error> remove(const std::string& path) override { return files_->remove(path); }

 private:
  std::unique_ptr<MemoryFiles> files_;
};

/// The readers that all inputs share.
struct World {
  // No log records are kept, because they would pile up over millions of inputs.
  World() { fakes.mediator.setProduction(true); }

  FakePlatform fakes;
  FreshFiles files;
  LibplistPropertyLists lists;
  const Platform platform = fakes.seams().with(files, lists);
};

World& world() {
  static World& only = *new World;
  return only;
}

void checkTasks(const UserTaskStorage& storage) {
  for (const auto& task : storage.localTasks()) {
    if (task->filePath() != kRoot + task->filename()) {
      // A path of its own is allowed if it stays within the directory.
      const std::string& path = task->filePath();
      if (!path.starts_with(kRoot) || !isPlainPathComponent(path.substr(kRoot.size()))) {
        std::abort();
      }
    }
    if (!isPlainPathComponent(task->filename())) std::abort();
  }
}

/// True when some file has this content, wherever it lies.
bool isKept(MemoryFiles& files, const std::string& content) {
  const std::vector<std::string> paths = files.paths();
  return std::any_of(paths.begin(), paths.end(),
                     [&](const std::string& path) { return files.text(path) == content; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  MemoryFiles& files = world().files.renew();
  files.put(kLog, std::string(reinterpret_cast<const char*>(bytes), size));
  files.put("/documents/" + kRoot + "a.jpg", "bytes of a");
  files.put("/documents/" + kRoot + "b.jpg", "bytes of b");
  files.put(kOutside, "another user's");
  checkTasks(UserTaskStorage(world().platform, "u1"));

  UserTaskStorage storage(world().platform, "u1", StoredTasks::resume);
  checkTasks(storage);
  if (!storage.syncLog()) std::abort();
  if (!scanLog(files.text(kLog).value()).whole) std::abort();
  checkTasks(storage);
  if (files.text(kOutside) != "another user's") std::abort();
  if (!isKept(files, "bytes of a") || !isKept(files, "bytes of b")) std::abort();
  return 0;
}
