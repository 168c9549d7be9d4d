// A host with "resumeStoredTasks" that is killed again and again until all its uploads have
// arrived.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "integration/HostProcess.h"
#include "integration/TestHost.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

constexpr int kTasks = 1000;
constexpr int kKills = 5;
constexpr int kThreads = 4;

/// Memory that outlives the host processes.
struct Handed {
  /// True when the action has returned.
  std::atomic<bool> accepted[kTasks];
};

/// The bytes of a task: they begin with its number, and the rest differs from task to task.
std::string payload(int task) {
  std::string bytes = std::to_string(task) + " ";
  std::minstd_rand random(static_cast<unsigned>(task) + 1);
  const std::size_t size = 16 + random() % 4000;
  while (bytes.size() < size) bytes += static_cast<char>(random() >> 8);
  return bytes;
}

/// Hands over, from four threads, the tasks that no earlier process had accepted. Then it runs for
/// ever.
void runHost(Devstack& devstack, const std::string& documents, Handed& handed) {
  TestHost& host = TestHost::start(
      devstack,
      {.user = 1, .resumeStoredTasks = true, .documentsDirectory = documents, .timerSpeed = 30});
  host.setUp();
  host.perform("Action_SetMaxBackgroundConcurrent:", {{"count", 8}});
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = t; i < kTasks; i += kThreads) {
        if (handed.accepted[i]) continue;
        host.perform(
            "Action_BackgroundUpload:",
            {{"scope", "private-file"}, {"data", Data(payload(i))}, {"suffix", "crashtest"}});
        handed.accepted[i] = true;
      }
    });
  }
  // These threads are never joined, because the process is killed while they run or later.
  for (std::thread& thread : threads) thread.detach();
  host.waitUntil([] { return false; }, 3600);
}

std::size_t entries(const std::string& log) {
  const Result<Data> bytes = PosixFiles({}).read(log);
  if (!bytes) return 0;
  const Result<Value> decoded = LibplistPropertyLists().decode(*bytes);
  EXPECT_TRUE(decoded && decoded->asDictionary() != nullptr) << "unreadable";
  return decoded && decoded->asDictionary() != nullptr ? decoded->asDictionary()->size() : 0;
}

TEST(ResumedUpload, ThousandTasksOfAHostKilledFiveTimesAllArriveByteIdentical) {
  Devstack devstack;
  const TemporaryDirectory documents;
  const Devstack::User user = devstack.user(1);
  const std::string directory = documents.path() + "/aws-0011/" + user.userId;
  const std::string log = directory + "/logs.plist";
  const std::string prefix = "private/" + user.userId + "/";
  void* const shared =
      ::mmap(nullptr, sizeof(Handed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto& handed = *new (shared) Handed{};
  const auto accepted = [&handed] {
    int count = 0;
    for (const auto& one : handed.accepted) count += one ? 1 : 0;
    return count;
  };

  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int kill = 0; kill < kKills; ++kill) {
    HostProcess host([&] { runHost(devstack, documents.path(), handed); });
    // Work is under way, and more of it waits.
    const int before = accepted();
    while (accepted() == before && before < kTasks) std::this_thread::yield();
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::uniform_int_distribution(0, 300)(random)));
    host.kill();
    EXPECT_TRUE(host.onlyKilled());
    EXPECT_GT(accepted() < kTasks ? 1 : entries(log), 0U) << "too late to lose anything";
  }

  HostProcess last([&] { runHost(devstack, documents.path(), handed); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(100);
  while ((accepted() < kTasks || entries(log) > 0) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  last.kill();
  EXPECT_TRUE(last.onlyKilled());
  EXPECT_EQ(accepted(), kTasks);
  EXPECT_EQ(entries(log), 0U);
  for (const auto& file : std::filesystem::directory_iterator(directory)) {
    // This folder has files that were written before their entry when a host was killed.
    if (file.path().filename().string().starts_with("unlogged-")) continue;
    EXPECT_EQ(file.path().filename(), "logs.plist") << "left behind";
  }

  std::vector<int> arrived(kTasks);
  for (const auto& [name, bytes] : devstack.objectsBelow(prefix)) {
    if (!name.ends_with(".crashtest")) continue;
    const int task = std::stoi(bytes);
    ASSERT_TRUE(task >= 0 && task < kTasks) << name;
    EXPECT_TRUE(bytes == payload(task)) << name;
    ++arrived[static_cast<std::size_t>(task)];
  }
  int again = 0;
  for (int i = 0; i < kTasks; ++i) {
    EXPECT_GE(arrived[static_cast<std::size_t>(i)], 1) << "task " << i << " is lost";
    again += arrived[static_cast<std::size_t>(i)] - 1;
  }
  // A process that is killed after it has stored a task, but before the action has returned, hands
  // the task over a second time.
  EXPECT_LE(again, kKills * kThreads);
}

}  // namespace
}  // namespace qx
