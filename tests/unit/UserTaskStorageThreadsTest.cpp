#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "unit/UserTaskStorageFixture.h"

namespace qx {
namespace {

using testing::SizeIs;

// ---- Many at once

TEST_F(UserTaskStorageTest, ThreadsStoreAndRemoveWithoutLosingAnEntry) {
  UserTaskStorage storage(library.platform, "u1");
  constexpr int kThreads = 4;
  constexpr int kPerThread = 100;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&storage, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i) + ".jpg";
        store(storage, name);
        EXPECT_TRUE(storage.filePath(name));
        const bool removed = i % 2 == 1 || storage.remove(name);
        EXPECT_TRUE(removed);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(storage.localTasks(), SizeIs(kThreads * kPerThread / 2));
}

TEST_F(UserTaskStorageTest, EachAnsweredStoreIsInTheLogAtThatInstant) {
  UserTaskStorage storage(library.platform, "u1");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&storage, t] {
      for (int i = 0; i < 25; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i) + ".jpg";
        store(storage, name);
        EXPECT_TRUE(storage.localLogs().contains(name)) << name;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(UserTaskStorageTest, EachCallThatWaitsForNobodyWrites) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_TRUE(storage.syncLog());
  EXPECT_TRUE(storage.syncLog());
  EXPECT_EQ(platform.files.writeCount(kLog), 2U);
}

/// The progress of the four threads of a test.
struct Crowd {
  /// The number of entries whose text has been made.
  std::atomic<std::size_t> made = 0;
  /// The number of entries in the log file.
  std::atomic<std::size_t> logged = 0;
  std::atomic<std::size_t> finishedThreads = 0;
};

/// Lets a write of the log begin only when every thread has something to log, as a slow disk would,
/// or after a while, because a thread may wait for the next write with its entry in the log
/// already. The log holds one piece per entry, between two pieces at either end.
class CrowdedFiles : public MemoryFiles {
 public:
  explicit CrowdedFiles(Crowd& crowd) : crowd_(crowd) {}
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    if (path != kLog) return MemoryFiles::write(path, pieces, mode, durability);
    for (int i = 0; i < 2000; ++i) {
      if (crowd_.made - crowd_.logged + crowd_.finishedThreads >= 4) break;
      std::this_thread::yield();
    }
    crowd_.logged = pieces.size() - 4;
    return MemoryFiles::write(path, pieces, mode, durability);
  }

 private:
  Crowd& crowd_;
};

/// Notices that the text of an entry is made, which is the last step before it goes into the log.
class CrowdedPropertyLists : public SimplePropertyLists {
 public:
  explicit CrowdedPropertyLists(Crowd& crowd) : crowd_(crowd) {}
  std::optional<std::string> element(const Value& value) override {
    auto text = SimplePropertyLists::element(value);
    ++crowd_.made;
    return text;
  }

 private:
  Crowd& crowd_;
};

TEST(UserTaskStorageSharingTest, FourThreadsThatStoreFourHundredTasksShareWrites) {
  FakePlatform& platform = FakePlatform::kept();
  Crowd crowd;
  CrowdedFiles files(crowd);
  CrowdedPropertyLists propertyLists(crowd);
  Library& library = keptLibrary(platform.seams().with(files, propertyLists));
  UserTaskStorage storage(library.platform, "u1");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&crowd, &storage, t] {
      for (int i = 0; i < 100; ++i) {
        const auto stored = storage.storageFile(
            std::make_shared<DataTask>(std::to_string(t) + "-" + std::to_string(i), "images",
                                       Data("bytes"), AWSParameterMap()));
        EXPECT_TRUE(stored && storage.storageLog(*stored));
      }
      ++crowd.finishedThreads;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(storage.localLogs(), SizeIs(400));
  EXPECT_LT(files.writeCount(kLog), 280U);
}

}  // namespace
}  // namespace qx
