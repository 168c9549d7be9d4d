// Serial queues with a real thread each, for the tests that ThreadSanitizer checks.
//
// Threads: every operation may be called from any thread. The threads of the queues are never
// joined: as in a real process, the queues live until it ends, so the dispatch is never destroyed.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace qx {

class ThreadDispatch : public Dispatch {
 public:
  static ThreadDispatch& make() { return *new ThreadDispatch; }

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override {
    // Its own thread, which never ends, keeps the queue alive.
    auto queue = std::make_shared<Queue>(std::move(label));
    std::thread([queue] { queue->runForever(); }).detach();
    return queue;
  }
  DispatchQueue& mainQueue() override { return *main_; }
  DispatchQueue& globalQueue() override { return *global_; }
  std::shared_ptr<Semaphore> makeSemaphore(int count) override {
    return std::make_shared<CountingSemaphore>(count);
  }
  /// Ticks once, at the start. The tests that use threads end long before a second tick.
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override {
    return std::make_unique<OneTick>(queue);
  }

 private:
  class CountingSemaphore : public Semaphore {
   public:
    explicit CountingSemaphore(int count) : count_(count) {}
    void signal() override {
      MutexLock lock(mutex_);
      ++count_;
      changed_.notifyOne();
    }
    void wait() override {
      MutexLock lock(mutex_);
      while (count_ == 0) changed_.wait(mutex_);
      --count_;
    }

   private:
    Mutex mutex_;
    Condition changed_;
    int count_ QX_GUARDED_BY(mutex_);
  };

  class Queue : public DispatchQueue {
   public:
    explicit Queue(std::string label) : label_(std::move(label)) {}
    std::string_view label() const override { return label_; }
    void async(Work work) override {
      MutexLock lock(mutex_);
      work_.push_back(std::move(work));
      changed_.notifyOne();
    }
    void sync(Work work) override {
      // The state is shared, because the worker may still be inside signal() when the wait is over.
      const auto done = std::make_shared<CountingSemaphore>(0);
      async([&work, done] {
        work();
        done->signal();
      });
      done->wait();
    }
    [[noreturn]] void runForever() {
      for (;;) next()();
    }

   private:
    Work next() {
      MutexLock lock(mutex_);
      while (work_.empty()) changed_.wait(mutex_);
      Work work = std::move(work_.front());
      work_.pop_front();
      return work;
    }

    const std::string label_;
    Mutex mutex_;
    Condition changed_;
    std::deque<Work> work_ QX_GUARDED_BY(mutex_);
  };

  class OneTick : public Timer {
   public:
    explicit OneTick(DispatchQueue& queue) : queue_(queue) {}
    void setEventHandler(Work handler) override { handler_ = std::move(handler); }
    void scheduleNow(double /*intervalSeconds*/, double /*leewaySeconds*/) override {}
    void resume() override { queue_.async(handler_); }

   private:
    DispatchQueue& queue_;
    Work handler_;
  };

  ThreadDispatch() : main_(makeSerialQueue("main")), global_(makeSerialQueue("global")) {}

  const std::shared_ptr<DispatchQueue> main_;
  const std::shared_ptr<DispatchQueue> global_;
};

}  // namespace qx
