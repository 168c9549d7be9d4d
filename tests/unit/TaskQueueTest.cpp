#include "Classes/TaskQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

/// A task that tells when its executor starts. Without bytes the executor reports a failure inside
/// execute(). With bytes it waits for credentials that never come, and the test reports.
class ProbeTask : public Task {
 public:
  ProbeTask(std::string filename, std::function<std::optional<Data>()> onStart)
      : filename_(std::move(filename)), onStart_(std::move(onStart)) {}
  const std::string& scope() const override { return scope_; }
  bool hasPath() const override { return false; }
  const std::string& filename() const override { return filename_; }
  const AWSParameterMap& extra() const override { return extra_; }
  AWSParameterMap& extra() override { return extra_; }
  std::optional<Data> data() const override { return onStart_(); }

 private:
  std::string filename_;
  std::string scope_ = "images";
  AWSParameterMap extra_;
  std::function<std::optional<Data>()> onStart_;
};

class TaskQueueTest : public testing::Test {
 protected:
  /// Reports only when the test says so.
  std::shared_ptr<TaskExecutor> running(const std::string& name) {
    return std::make_shared<TaskExecutor>(library.platform, library.configure, library.events,
                                          UploadKind::background,
                                          std::make_shared<ProbeTask>(name, [this, name] {
                                            started.push_back(name);
                                            return Data("bytes");
                                          }));
  }
  /// Reports inside execute().
  std::shared_ptr<TaskExecutor> instant(std::function<void()> onStart) {
    return std::make_shared<TaskExecutor>(
        library.platform, library.configure, library.events, UploadKind::background,
        std::make_shared<ProbeTask>("instant", [onStart = std::move(onStart)] {
          onStart();
          return std::optional<Data>();
        }));
  }
  static void succeed(const std::shared_ptr<TaskExecutor>& executor) {
    executor->deliver("https://store.test/x", AWSCallbackStatus::success(), 7);
  }
  std::vector<std::shared_ptr<TaskExecutor>> addRunning(TaskQueue& queue, int count) {
    std::vector<std::shared_ptr<TaskExecutor>> executors;
    for (int i = 0; i < count; ++i) {
      executors.push_back(running(std::to_string(i)));
      queue.add(executors.back());
    }
    return executors;
  }

  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
  std::vector<std::string> started;
};

using Names = std::vector<std::string>;

TEST_F(TaskQueueTest, SixOfTenStartInOrderAndEachCompletionStartsTheNext) {
  const auto& queue = library.taskQueue;
  const auto executors = addRunning(*queue, 10);
  queue->start();
  EXPECT_EQ(started, (Names{"0", "1", "2", "3", "4", "5"}));
  EXPECT_EQ(queue->concurrentCount(), 6);
  EXPECT_EQ(queue->waitingCount(), 4U);

  succeed(executors[3]);
  EXPECT_EQ(started.back(), "6");
  succeed(executors[0]);
  EXPECT_EQ(started.back(), "7");
  EXPECT_EQ(queue->concurrentCount(), 6);
}

TEST_F(TaskQueueTest, AddAloneStartsNothing) {
  const auto& queue = library.taskQueue;
  addRunning(*queue, 2);
  EXPECT_TRUE(started.empty());
  EXPECT_EQ(queue->total(), 2);
  EXPECT_EQ(queue->waitingCount(), 2U);
}

TEST_F(TaskQueueTest, ConfiguredLimitOfZeroRunsOneAtATime) {
  library.configure.maxBackgroundConcurrentCount = 0;
  const auto executors = addRunning(*library.taskQueue, 3);
  library.taskQueue->start();
  EXPECT_EQ(started, (Names{"0"}));
  succeed(executors[0]);
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, NegativeLimitRunsOneAtATime) {
  library.configure.maxBackgroundConcurrentCount = -4;
  addRunning(*library.taskQueue, 3);
  library.taskQueue->start();
  EXPECT_EQ(started, (Names{"0"}));
}

TEST_F(TaskQueueTest, FixedLimitOfAQueueWinsOverTheConfiguredOne) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 2; });
  addRunning(*queue, 5);
  queue->start();
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, FixedLimitOfZeroRunsOneAtATime) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 0; });
  addRunning(*queue, 3);
  queue->start();
  EXPECT_EQ(started, (Names{"0"}));
}

TEST_F(TaskQueueTest, RaisedLimitCountsAtTheNextStart) {
  library.configure.maxBackgroundConcurrentCount = 1;
  addRunning(*library.taskQueue, 5);
  library.taskQueue->start();
  EXPECT_EQ(started.size(), 1U);
  library.configure.maxBackgroundConcurrentCount = 3;
  library.taskQueue->start();
  EXPECT_EQ(started, (Names{"0", "1", "2"}));
}

TEST_F(TaskQueueTest, LoweredLimitStartsNothingUntilEnoughHaveReported) {
  library.configure.maxBackgroundConcurrentCount = 3;
  const auto executors = addRunning(*library.taskQueue, 6);
  library.taskQueue->start();
  library.configure.maxBackgroundConcurrentCount = 1;
  succeed(executors[0]);
  succeed(executors[1]);
  EXPECT_EQ(started.size(), 3U);
  succeed(executors[2]);
  EXPECT_EQ(started, (Names{"0", "1", "2", "3"}));
}

TEST_F(TaskQueueTest, UnreachableNetworkStartsNothingUntilItComesBack) {
  platform.reachability.setReachable(false);
  const auto& queue = library.taskQueue;
  addRunning(*queue, 2);
  queue->start();
  EXPECT_TRUE(started.empty());
  EXPECT_EQ(queue->waitingCount(), 2U);
  platform.reachability.setReachable(true);
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, LostNetworkStartsNothing) {
  const auto& queue = library.taskQueue;
  addRunning(*queue, 2);
  platform.reachability.setReachable(false);
  EXPECT_TRUE(started.empty());
  EXPECT_EQ(queue->waitingCount(), 2U);
  EXPECT_EQ(queue->concurrentCount(), 0);
  platform.reachability.setReachable(true);
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, NetworkLostWhileFillingSlotsLeavesTheRestWaiting) {
  const auto& queue = library.taskQueue;
  queue->add(instant([this] { platform.reachability.setReachable(false); }));
  addRunning(*queue, 2);
  queue->start();
  EXPECT_TRUE(started.empty());
  EXPECT_EQ(queue->waitingCount(), 2U);
}

TEST_F(TaskQueueTest, ListenerOfADestroyedQueueDoesNothing) {
  auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const std::weak_ptr<TaskQueue> weak = queue;
  queue->add(running("0"));
  queue.reset();
  EXPECT_TRUE(weak.expired());
  platform.reachability.setReachable(true);
  EXPECT_TRUE(started.empty());
}

TEST_F(TaskQueueTest, LateReportAfterResetLeavesTheCountAtZero) {
  const auto& queue = library.taskQueue;
  const auto executors = addRunning(*queue, 8);
  queue->start();
  queue->reset();
  EXPECT_EQ(queue->concurrentCount(), 0);
  EXPECT_EQ(queue->waitingCount(), 0U);
  EXPECT_EQ(queue->total(), 0);
  succeed(executors[0]);
  succeed(executors[1]);
  EXPECT_EQ(queue->concurrentCount(), 0);
  EXPECT_EQ(started.size(), 6U);
}

TEST_F(TaskQueueTest, ExecutorWithoutCompletionFreesItsSlotAndStartsTheNext) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executors = addRunning(*queue, 2);
  ASSERT_FALSE(executors[0]->complete);
  queue->start();
  succeed(executors[0]);
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, PreviousCallbackGetsTheSameArgumentsWithItsSlotAlreadyFree) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executor = running("0");
  int calls = 0;
  executor->complete = [&](const std::shared_ptr<TaskExecutor>& reporting,
                           const std::optional<std::string>& url, const AWSCallbackStatus& status,
                           std::int64_t itemId) {
    ++calls;
    EXPECT_EQ(reporting, executor);
    EXPECT_EQ(url, "https://store.test/y");
    EXPECT_EQ(status, AWSCallbackStatus::failure(AWSErrorCode::clientError, "no"));
    EXPECT_EQ(itemId, 11);
    EXPECT_EQ(queue->concurrentCount(), 0);
  };
  queue->add(executor);
  queue->start();
  executor->deliver("https://store.test/y",
                    AWSCallbackStatus::failure(AWSErrorCode::clientError, "no"), 11);
  EXPECT_EQ(calls, 1);
}

TEST_F(TaskQueueTest, FailureStartsTheNextAsSuccessDoes) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executors = addRunning(*queue, 2);
  queue->start();
  executors[0]->deliver(std::nullopt, AWSCallbackStatus::failure(AWSErrorCode::unknown, "no"), 0);
  EXPECT_EQ(started, (Names{"0", "1"}));
  EXPECT_EQ(queue->waitingCount(), 0U);
}

TEST_F(TaskQueueTest, CallbackMayAddAndStart) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto first = running("first");
  first->complete = [&](const auto&, const auto&, const auto&, std::int64_t) {
    queue->add(running("second"));
    queue->start();
  };
  queue->add(first);
  queue->start();
  succeed(first);
  EXPECT_EQ(started, (Names{"first", "second"}));
}

TEST_F(TaskQueueTest, CallbackMayReplaceTheCompletionThatRuns) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executor = running("0");
  std::string seen;
  // The text is long enough to lie on the heap, so that a use after its replacement shows.
  executor->complete = [&seen, text = std::string(100, 'x')](
                           const std::shared_ptr<TaskExecutor>& reporting, const auto&, const auto&,
                           std::int64_t) {
    reporting->complete = nullptr;
    seen = text;
  };
  queue->add(executor);
  queue->add(running("1"));
  queue->start();
  executor->deliver(std::nullopt, AWSCallbackStatus::success(), 0);
  EXPECT_EQ(seen, std::string(100, 'x'));
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, RunningExecutorKeepsItsQueueAlive) {
  auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executors = addRunning(*queue, 2);
  queue->start();
  queue.reset();
  succeed(executors[0]);
  EXPECT_EQ(started, (Names{"0", "1"}));
}

TEST_F(TaskQueueTest, HundredThousandSynchronousExecutorsRunInConstantStack) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 3; });
  constexpr int kCount = 100000;
  int ran = 0;
  std::uintptr_t lowest = UINTPTR_MAX;
  std::uintptr_t highest = 0;
  for (int i = 0; i < kCount; ++i) {
    queue->add(instant([&] {
      const auto address = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
      lowest = std::min(lowest, address);
      highest = std::max(highest, address);
      ++ran;
    }));
  }
  queue->start();
  EXPECT_EQ(ran, kCount);
  EXPECT_LT(highest - lowest, 4096U);
  EXPECT_TRUE(queue->idle());
}

TEST_F(TaskQueueTest, ChainOfExecutorsThatEachAddTheNextRunsInConstantStack) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  int left = 20000;
  std::uintptr_t lowest = UINTPTR_MAX;
  std::uintptr_t highest = 0;
  std::function<void()> step = [&] {
    const auto address = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    lowest = std::min(lowest, address);
    highest = std::max(highest, address);
    if (--left == 0) return;
    queue->add(instant(step));
    queue->start();
  };
  queue->add(instant(step));
  queue->start();
  EXPECT_EQ(left, 0);
  EXPECT_LT(highest - lowest, 4096U);
}

TEST_F(TaskQueueTest, IdleOnlyWhenNothingWaitsAndNothingRuns) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  EXPECT_TRUE(queue->idle());
  const auto executor = running("0");
  queue->add(executor);
  EXPECT_FALSE(queue->idle());
  queue->start();
  EXPECT_FALSE(queue->idle());
  succeed(executor);
  EXPECT_TRUE(queue->idle());
}

TEST_F(TaskQueueTest, FilenamesAreOfTasksAnnouncedWaitingAndRunning) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  using Set = std::set<std::string>;
  queue->announce("2");
  auto executors = addRunning(*queue, 2);
  queue->start();
  EXPECT_EQ(queue->filenames(), (Set{"0", "1", "2"}));
  queue->add(running("2"));
  queue->reset();
  EXPECT_EQ(queue->filenames(), Set{"0"}) << "it runs on, and the announced one was added";
  succeed(executors[0]);
  EXPECT_EQ(queue->filenames(), Set{});
}

TEST_F(TaskQueueTest, FilenameOfARunningTaskStaysUntilItsCompletionReturns) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  const auto executor = running("a");
  std::set<std::string> duringTheReport;
  executor->complete = [&](const auto&, const auto&, const auto&, std::int64_t) {
    duringTheReport = queue->filenames();
  };
  queue->add(executor);
  queue->start();
  succeed(executor);
  EXPECT_EQ(duringTheReport, std::set<std::string>{"a"});
  EXPECT_EQ(queue->filenames(), std::set<std::string>{});
}

TEST_F(TaskQueueTest, ResetMayDestroyExecutorsThatUseTheQueue) {
  const auto queue = TaskQueue::make(platform.reachability, [] { return 1; });
  struct UsesQueue {
    std::shared_ptr<TaskQueue> queue;
    std::size_t* waiting;
    ~UsesQueue() { *waiting = queue->waitingCount(); }
  };
  std::size_t waiting = 99;
  std::shared_ptr<UsesQueue> probe(new UsesQueue{queue, &waiting});
  queue->add(instant([probe = std::move(probe)] {}));
  queue->reset();
  EXPECT_EQ(waiting, 0U);
}

TEST_F(TaskQueueTest, RacingStartsAndReportsNeverExceedTheLimitAndStrandNothing) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 3000;
  constexpr int kLimit = 2;
  const auto queue = TaskQueue::make(platform.reachability, [] { return kLimit; });
  std::atomic<int> active = 0;
  std::atomic<int> most = 0;
  std::atomic<int> ran = 0;
  const auto work = [&] {
    const int now = ++active;
    int seen = most;
    while (now > seen && !most.compare_exchange_weak(seen, now)) {
    }
    std::this_thread::yield();
    --active;
    ++ran;
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kPerThread; ++i) {
        queue->add(instant(work));
        queue->start();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ran, kThreads * kPerThread);
  EXPECT_LE(most, kLimit);
  EXPECT_TRUE(queue->idle());
}

}  // namespace
}  // namespace qx
