// The contract of queues, semaphores and timers, for the fake and the real ones.
#include "platform/Dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/FakeDispatch.h"
#include "platforms/shared/PosixDispatch.h"

namespace qx {
namespace {

using testing::ElementsAre;

constexpr double kInterval = 0.02;

struct OnOneThread {
  OnOneThread() {
    // Time passes only when all threads wait for it.
    dispatch.onIdle = [this] { clock.advance(kInterval); };
  }
  void runMainQueue() { dispatch.runUntilIdle(); }
  void settle() { dispatch.runUntilIdle(); }
  double now() { return clock.now(); }

  FakeClock clock;
  FakeDispatch dispatch{clock};
};

struct OnManyThreads {
  void runMainQueue() {
    dispatch.stopMainQueue();
    dispatch.runMainQueue();
  }
  void settle() { dispatch.shutDown(); }
  static double now() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(since).count();
  }

  PosixDispatch dispatch;
};

/// Words that any thread has noted.
class Notes {
 public:
  void add(std::string word) {
    const std::lock_guard lock(mutex_);
    words_.push_back(std::move(word));
  }
  std::vector<std::string> words() {
    const std::lock_guard lock(mutex_);
    return words_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> words_;
};

template <typename T>
class DispatchContract : public testing::Test {
 protected:
  Dispatch& dispatch() { return underTest_.dispatch; }

  // Declared before the queues and so destroyed after them, because work on the queues notes
  // something.
  Notes notes_;
  T underTest_;
};

using Implementations = testing::Types<OnOneThread, OnManyThreads>;
TYPED_TEST_SUITE(DispatchContract, Implementations);

TYPED_TEST(DispatchContract, QueuesKeepTheirLabels) {
  EXPECT_EQ(this->dispatch().makeSerialQueue("com.aws.get.config")->label(), "com.aws.get.config");
  EXPECT_EQ(this->dispatch().mainQueue().label(), "main");
  EXPECT_EQ(this->dispatch().globalQueue().label(), "global");
}

TYPED_TEST(DispatchContract, ASerialQueueRunsWorkInTheOrderItCame) {
  const auto queue = this->dispatch().makeSerialQueue("q");
  std::vector<int> order;
  std::vector<int> expected;
  for (int i = 0; i < 1000; ++i) {
    queue->async([&order, i] { order.push_back(i); });
    expected.push_back(i);
  }
  queue->sync([] {});
  EXPECT_EQ(order, expected);
}

TYPED_TEST(DispatchContract, SyncRunsBehindWhatIsThereAndReturnsWhenDone) {
  const auto queue = this->dispatch().makeSerialQueue("q");
  queue->async([this] { this->notes_.add("earlier"); });
  queue->sync([this] { this->notes_.add("sync"); });
  EXPECT_THAT(this->notes_.words(), ElementsAre("earlier", "sync"));
}

TYPED_TEST(DispatchContract, WorkEnqueuedFromTheQueueRunsAfterTheWorkThatEnqueuedIt) {
  const auto queue = this->dispatch().makeSerialQueue("q");
  queue->async([this, &queue] {
    queue->async([this] { this->notes_.add("inner"); });
    this->notes_.add("outer");
  });
  queue->sync([] {});
  queue->sync([] {});
  EXPECT_THAT(this->notes_.words(), ElementsAre("outer", "inner"));
}

TYPED_TEST(DispatchContract, CapturesEndBeforeTheNextWorkRuns) {
  const auto queue = this->dispatch().makeSerialQueue("q");
  std::shared_ptr<void> captured(nullptr, [this](void*) { this->notes_.add("ended"); });
  queue->async([captured] {});
  captured.reset();
  queue->async([this] { this->notes_.add("next"); });
  queue->sync([] {});
  EXPECT_THAT(this->notes_.words(), ElementsAre("ended", "next"));
}

TYPED_TEST(DispatchContract, WorkEnqueuedBeforeTheLastHandleWentStillRuns) {
  auto queue = this->dispatch().makeSerialQueue("q");
  queue->async([this] { this->notes_.add("first"); });
  queue->async([this] { this->notes_.add("second"); });
  queue.reset();
  this->underTest_.settle();
  EXPECT_THAT(this->notes_.words(), ElementsAre("first", "second"));
}

TYPED_TEST(DispatchContract, AQueueMayEndInItsOwnWork) {
  auto queue = this->dispatch().makeSerialQueue("q");
  DispatchQueue& handle = *queue;
  handle.async([queue = std::move(queue), this] { this->notes_.add("ran"); });
  this->underTest_.settle();
  EXPECT_THAT(this->notes_.words(), ElementsAre("ran"));
}

TYPED_TEST(DispatchContract, SyncFromItsOwnWorkStopsTheProcess) {
  const auto queue = this->dispatch().makeSerialQueue("com.aws.fetch");
  EXPECT_DEATH(queue->sync([&] { queue->sync([] {}); }),
               "QXAwsUploader: fatal: deadlock.*com.aws.fetch");
}

TYPED_TEST(DispatchContract, MainQueueWorkRunsInOrderWhenItsThreadRunsIt) {
  this->dispatch().mainQueue().async([this] {
    this->notes_.add("first");
    this->dispatch().mainQueue().async([this] { this->notes_.add("third"); });
  });
  this->dispatch().mainQueue().async([this] { this->notes_.add("second"); });
  EXPECT_THAT(this->notes_.words(), ElementsAre());
  this->underTest_.runMainQueue();
  this->underTest_.runMainQueue();
  EXPECT_THAT(this->notes_.words(), ElementsAre("first", "second", "third"));
}

TYPED_TEST(DispatchContract, AWaitEndsWhenAnotherQueueSignals) {
  const auto waiting = this->dispatch().makeSerialQueue("waiting");
  const auto signalling = this->dispatch().makeSerialQueue("signalling");
  const auto semaphore = this->dispatch().makeSemaphore(0);
  waiting->async([this, semaphore] {
    semaphore->wait();
    this->notes_.add("woken");
  });
  signalling->async([this, semaphore] {
    this->notes_.add("signals");
    semaphore->signal();
  });
  waiting->sync([] {});
  EXPECT_THAT(this->notes_.words(), ElementsAre("signals", "woken"));
}

TYPED_TEST(DispatchContract, ASemaphoreCounts) {
  const auto semaphore = this->dispatch().makeSemaphore(2);
  semaphore->wait();
  semaphore->wait();
  semaphore->signal();
  semaphore->wait();
  // A fourth wait would never return, so that another queue has to signal.
  this->dispatch().globalQueue().async([semaphore] { semaphore->signal(); });
  semaphore->wait();
}

TYPED_TEST(DispatchContract, TheGlobalQueueRunsWorkWhileOtherWorkWaits) {
  const auto first = this->dispatch().makeSemaphore(0);
  const auto second = this->dispatch().makeSemaphore(0);
  const auto done = this->dispatch().makeSemaphore(0);
  this->dispatch().globalQueue().async([first, done] {
    first->wait();
    done->signal();
  });
  this->dispatch().globalQueue().async([second, first] {
    second->wait();
    first->signal();
  });
  this->dispatch().globalQueue().async([second] { second->signal(); });
  done->wait();
}

TYPED_TEST(DispatchContract, ATimerTicksAtOnceAndThenEveryInterval) {
  const auto ticked = this->dispatch().makeSemaphore(0);
  const auto timer = this->dispatch().makeTimer(this->dispatch().globalQueue());
  timer->setEventHandler([ticked] { ticked->signal(); });
  timer->scheduleNow(kInterval, 2e-9);
  const double begin = this->underTest_.now();
  timer->resume();
  for (int tick = 0; tick < 4; ++tick) {
    ticked->wait();
    // A tick may be late, but none is early. The difference allows for rounding.
    EXPECT_GE(this->underTest_.now() - begin, tick * kInterval - 1e-6);
  }
}

TYPED_TEST(DispatchContract, TheFirstTickDoesNotWaitForTheInterval) {
  const auto ticked = this->dispatch().makeSemaphore(0);
  const auto timer = this->dispatch().makeTimer(this->dispatch().globalQueue());
  timer->setEventHandler([ticked] { ticked->signal(); });
  timer->scheduleNow(3600, 2e-9);
  timer->resume();
  ticked->wait();
}

TYPED_TEST(DispatchContract, ATimerThatIsNotResumedDoesNotTick) {
  const auto timer = this->dispatch().makeTimer(this->dispatch().globalQueue());
  timer->setEventHandler([this] { this->notes_.add("tick"); });
  timer->scheduleNow(kInterval, 2e-9);
  this->underTest_.settle();
  EXPECT_THAT(this->notes_.words(), ElementsAre());
}

TYPED_TEST(DispatchContract, NoTickComesAfterATimerIsDestroyed) {
  const auto queue = this->dispatch().makeSerialQueue("q");
  const auto ticked = this->dispatch().makeSemaphore(0);
  auto timer = this->dispatch().makeTimer(*queue);
  timer->setEventHandler([this, ticked] {
    this->notes_.add("tick");
    ticked->signal();
  });
  timer->scheduleNow(kInterval / 20, 2e-9);
  timer->resume();
  ticked->wait();
  timer.reset();
  const std::size_t ticks = this->notes_.words().size();
  queue->sync([] {});
  this->underTest_.settle();
  EXPECT_EQ(this->notes_.words().size(), ticks);
}

}  // namespace
}  // namespace qx
