// The properties that only real threads can show. The contract of every Dispatch tests the others.
#include "platforms/shared/PosixDispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace qx {
namespace {

std::string threadName() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

TEST(PosixDispatch, ASerialQueueHasOneThreadOfItsOwnNamedAfterIt) {
  PosixDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("com.aws.get.config");
  std::set<std::thread::id> threads;
  std::string name;
  for (int i = 0; i < 100; ++i) {
    queue->async([&] {
      threads.insert(std::this_thread::get_id());
      name = threadName();
    });
  }
  queue->sync([] {});
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
  EXPECT_EQ(name, "com.aws.get.con") << "the kernel takes 15 characters";
}

TEST(PosixDispatch, WorkFromManyThreadsIsRunOnceEachInTheOrderOfItsThread) {
  PosixDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("q");
  constexpr int kThreads = 4;
  constexpr int kEach = 2000;
  std::array<std::vector<int>, kThreads> seen;
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) queue->async([&seen, t, i] { seen[t].push_back(i); });
    });
  }
  for (std::thread& thread : threads) thread.join();
  queue->sync([] {});
  std::vector<int> expected;
  for (int i = 0; i < kEach; ++i) expected.push_back(i);
  for (const auto& each : seen) EXPECT_EQ(each, expected);
}

TEST(PosixDispatch, SyncFromManyThreadsRunsOneAtATime) {
  PosixDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("com.aws.change.config");
  int unguarded = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) queue->sync([&] { ++unguarded; });
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(unguarded, 2000);
}

TEST(PosixDispatch, ShutDownWaitsForWorkThatEnqueuesWork) {
  PosixDispatch dispatch;
  const auto first = dispatch.makeSerialQueue("first");
  const auto second = dispatch.makeSerialQueue("second");
  std::atomic<int> ran = 0;
  std::function<void(int)> hop = [&](int left) {
    ++ran;
    if (left == 0) return;
    DispatchQueue& next = left % 3 == 0 ? dispatch.globalQueue() : left % 3 == 1 ? *first : *second;
    next.async([&hop, left] { hop(left - 1); });
  };
  first->async([&] { hop(300); });
  dispatch.shutDown();
  EXPECT_EQ(ran, 301);
}

TEST(PosixDispatch, AfterShutDownAQueueDropsWorkAndSyncRunsInPlace) {
  std::shared_ptr<DispatchQueue> queue;
  {
    PosixDispatch dispatch;
    queue = dispatch.makeSerialQueue("q");
    queue->sync([] {});
  }
  queue->async([] { ADD_FAILURE() << "nothing runs any more"; });
  bool ran = false;
  queue->sync([&] { ran = true; });
  EXPECT_TRUE(ran);
}

TEST(PosixDispatch, ATimerThatOutlivesItsDispatchIsStill) {
  std::unique_ptr<Timer> timer;
  std::atomic<int> ticks = 0;
  {
    PosixDispatch dispatch;
    const auto ticked = dispatch.makeSemaphore(0);
    timer = dispatch.makeTimer(dispatch.globalQueue());
    timer->setEventHandler([&, ticked] {
      ++ticks;
      ticked->signal();
    });
    timer->scheduleNow(0.001, 2e-9);
    timer->resume();
    for (int i = 0; i < 5; ++i) ticked->wait();
  }
  const int before = ticks;
  timer.reset();
  EXPECT_EQ(ticks, before);
}

TEST(PosixDispatch, ATimersHandlerNeverRunsTwiceAtATime) {
  PosixDispatch dispatch;
  const auto ticked = dispatch.makeSemaphore(0);
  std::atomic<int> inside = 0;
  std::atomic<bool> overlapped = false;
  auto timer = dispatch.makeTimer(dispatch.globalQueue());
  timer->setEventHandler([&, ticked] {
    if (++inside > 1) overlapped = true;
    // The work takes longer than the interval, so that ticks fall due meanwhile.
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(3);
    while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
    --inside;
    ticked->signal();
  });
  timer->scheduleNow(0.0005, 2e-9);
  timer->resume();
  for (int i = 0; i < 10; ++i) ticked->wait();
  timer.reset();
  EXPECT_FALSE(overlapped);
}

TEST(PosixDispatch, TicksThatFallDueWhileTheirQueueIsBusyBecomeOne) {
  PosixDispatch dispatch;
  const auto queue = dispatch.makeSerialQueue("q");
  const auto free = dispatch.makeSemaphore(0);
  queue->async([free] { free->wait(); });
  int ticks = 0;
  auto timer = dispatch.makeTimer(*queue);
  timer->setEventHandler([&] { ++ticks; });
  // Another timer shows when the tested timer has had time for many ticks.
  const auto enough = dispatch.makeSemaphore(0);
  auto watch = dispatch.makeTimer(dispatch.globalQueue());
  watch->setEventHandler([enough] { enough->signal(); });
  timer->scheduleNow(0.001, 2e-9);
  timer->resume();
  watch->scheduleNow(0.01, 2e-9);
  watch->resume();
  for (int i = 0; i < 5; ++i) enough->wait();
  int ticksWaiting = 0;
  queue->async([&] { ticksWaiting = ticks; });
  free->signal();
  queue->sync([] {});
  timer.reset();
  EXPECT_LE(ticksWaiting, 1);
}

TEST(PosixDispatch, ATimersHandlerMayDestroyItsTimer) {
  PosixDispatch dispatch;
  // There are many timers, because the first tick may come before resume() has returned.
  for (int i = 0; i < 500; ++i) {
    const auto done = dispatch.makeSemaphore(0);
    auto timer = dispatch.makeTimer(dispatch.globalQueue());
    timer->setEventHandler([&] {
      timer.reset();
      done->signal();
    });
    timer->scheduleNow(60, 2e-9);
    timer->resume();
    done->wait();
    ASSERT_EQ(timer, nullptr);
  }
}

TEST(PosixDispatch, WorkMayDropTheQueueItRunsOn) {
  PosixDispatch dispatch;
  for (int i = 0; i < 500; ++i) {
    const auto done = dispatch.makeSemaphore(0);
    auto queue = dispatch.makeSerialQueue("q");
    queue->sync([] {});  // Now the queue has a thread, which may be faster than async().
    queue->async([&] {
      queue.reset();
      done->signal();
    });
    done->wait();
    ASSERT_EQ(queue, nullptr);
    queue = dispatch.makeSerialQueue("q");
    queue->sync([] {});
    queue->sync([&] { queue.reset(); });
    ASSERT_EQ(queue, nullptr);
  }
}

TEST(PosixDispatch, StopBeforeTheRunMakesItReturnAtOnce) {
  PosixDispatch dispatch;
  dispatch.stopMainQueue();
  dispatch.runMainQueue();
}

TEST(PosixDispatch, MainQueueRunsOnTheThreadThatRunsItUntilWorkStopsIt) {
  PosixDispatch dispatch;
  const auto main = std::this_thread::get_id();
  std::vector<bool> onMain;
  const auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] {
    for (int i = 0; i < 3; ++i) {
      dispatch.mainQueue().sync([&] { onMain.push_back(std::this_thread::get_id() == main); });
    }
    dispatch.stopMainQueue();
  });
  dispatch.runMainQueue();
  EXPECT_THAT(onMain, testing::ElementsAre(true, true, true));
}

TEST(PosixDispatch, AnotherThreadsStopMayEndTheDispatch) {
  for (int i = 0; i < 200; ++i) {
    auto dispatch = std::make_unique<PosixDispatch>();
    std::thread stopping([host = dispatch.get()] { host->stopMainQueue(); });
    dispatch->runMainQueue();
    dispatch.reset();
    stopping.join();
  }
}

TEST(PosixDispatch, WorkThatAPosterStillHoldsIsDroppedWithTheDispatch) {
  std::vector<Work> posted;
  auto dispatch =
      std::make_unique<PosixDispatch>([&](Work work) { posted.push_back(std::move(work)); });
  dispatch->mainQueue().async([] { ADD_FAILURE() << "nothing runs any more"; });
  dispatch.reset();
  ASSERT_EQ(posted.size(), 1U);
  posted.front()();
}

TEST(PosixDispatch, APosterGetsTheWorkOfTheMainQueue) {
  std::vector<Work> posted;
  PosixDispatch dispatch([&](Work work) { posted.push_back(std::move(work)); });
  int ran = 0;
  dispatch.mainQueue().async([&] { ++ran; });
  ASSERT_EQ(posted.size(), 1U);
  EXPECT_EQ(ran, 0);
  posted.front()();
  EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace qx
