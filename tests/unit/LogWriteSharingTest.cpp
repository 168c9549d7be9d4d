// Callers of one storage that wait for one another's write of the log.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Classes/UserTaskStorage.h"
#include "fakes/FakePlatform.h"

namespace qx {
namespace {

const std::string kLog = "/documents/aws-0011/u1/logs.plist";

/// Calls `duringLogWrite` once, after a write of the log has begun with the entries of that moment.
class SlowFiles : public MemoryFiles {
 public:
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    if (path == kLog && !called_.exchange(true)) duringLogWrite();
    return MemoryFiles::write(path, pieces, mode, durability);
  }
  /// The test sets this before each round.
  void arm(std::function<void()> work) {
    duringLogWrite = std::move(work);
    called_ = false;
  }

 private:
  std::function<void()> duringLogWrite;
  std::atomic<bool> called_ = true;
};

bool store(UserTaskStorage& storage, const std::string& name) {
  const auto stored = storage.storageFile(
      std::make_shared<DataTask>(name, "images", Data("bytes"), AWSParameterMap()));
  return stored && storage.storageLog(*stored);
}

TEST(LogWriteSharingTest, CallThatWaitsForAWriteBegunBeforeItsChangeIsNotAnsweredByThatWrite) {
  FakePlatform fakes;
  SlowFiles files;
  const Platform platform = fakes.seams().with(files);
  UserTaskStorage storage(platform, "u1");
  // The second caller may sometimes come too late to wait for the first one's write.
  for (int round = 0; round < 20; ++round) {
    const std::string first = std::to_string(round) + "-first.jpg";
    const std::string second = std::to_string(round) + "-second.jpg";
    std::thread secondCaller;
    files.arm([&] {
      secondCaller = std::thread([&] {
        EXPECT_TRUE(store(storage, second));
        EXPECT_TRUE(storage.localLogs().contains(second)) << "in the log file once answered";
      });
      while (!storage.contains(second)) std::this_thread::yield();
      for (int i = 0; i < 2000; ++i) std::this_thread::yield();
    });
    EXPECT_TRUE(store(storage, first));
    secondCaller.join();
    EXPECT_TRUE(storage.localLogs().contains(first));
  }
}

}  // namespace
}  // namespace qx
