#include "platforms/shared/PosixDispatch.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Error.h"
#include "platform/Mutex.h"
#include "platforms/shared/TimerTicks.h"

namespace qx {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kGlobalThreads = 4;

/// The queue whose work runs on this thread, the innermost one.
thread_local const void* currentQueue = nullptr;

/// Marks this thread as running the work of a queue.
class RunningOn {
 public:
  explicit RunningOn(const void* queue) : before_(std::exchange(currentQueue, queue)) {}
  ~RunningOn() { currentQueue = before_; }
  RunningOn(const RunningOn&) = delete;
  RunningOn& operator=(const RunningOn&) = delete;

 private:
  const void* const before_;
};

[[noreturn]] void fatalSync(std::string_view label) {
  fatal("deadlock: sync on the queue \"" + std::string(label) + "\" from its own work");
}

/// Lets one thread wait for another to be done.
class Done {
 public:
  void set() {
    MutexLock lock(mutex_);
    done_ = true;
    // Under the lock: the waiter may destroy this object as soon as it has seen done_.
    condition_.notifyAll();
  }
  void wait() {
    MutexLock lock(mutex_);
    while (!done_) condition_.wait(mutex_);
  }

 private:
  Mutex mutex_;
  Condition condition_;
  bool done_ QX_GUARDED_BY(mutex_) = false;
};

void nameThisThread(const std::string& name) {
  // The kernel takes 15 characters.
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

}  // namespace

/// All threads of one PosixDispatch, and how much work their queues have: what shutDown() waits
/// for. Shared with every queue and timer.
class PosixDispatch::Workers {
 public:
  /// Counts one piece of work in; false when the dispatch is shut down.
  bool begin() {
    if ((busy_.fetch_add(1) & kClosed) == 0) return true;
    end();
    return false;
  }
  void end() {
    if (busy_.fetch_sub(1) == 1) busy_.notify_all();
  }
  /// Only between begin and end: a thread is made for work.
  void spawn(const std::string& name, std::function<void()> body) {
    joinFinished();
    MutexLock lock(mutex_);
    const std::size_t id = nextId_++;
    try {
      threads_.emplace_back(id, std::thread([this, id, name, body = std::move(body)]() mutable {
                              nameThisThread(name);
                              body();
                              body = nullptr;
                              MutexLock finishing(mutex_);
                              finished_.push_back(id);
                            }));
    } catch (const std::system_error& error) {
      fatal("cannot start the thread \"" + name + "\": " + error.what());
    }
  }
  /// `close` is called by closeWhenQuiet(); it makes a worker return, or a timer stop.
  void addCloser(std::weak_ptr<void> owner, std::function<void()> close) {
    MutexLock lock(mutex_);
    std::erase_if(closers_, [](const auto& each) { return each.first.expired(); });
    closers_.emplace_back(std::move(owner), std::move(close));
  }
  void closeWhenQuiet() {
    std::uint32_t busy = 0;
    while (!busy_.compare_exchange_strong(busy, kClosed) && (busy & kClosed) == 0) {
      busy_.wait(busy);
      busy = 0;
    }
    std::vector<std::pair<std::weak_ptr<void>, std::function<void()>>> closers;
    {
      MutexLock lock(mutex_);
      closers.swap(closers_);
    }
    for (const auto& [owner, close] : closers) {
      if (const auto alive = owner.lock()) close();
    }
  }
  void joinAll() {
    std::vector<std::pair<std::size_t, std::thread>> threads;
    {
      MutexLock lock(mutex_);
      threads.swap(threads_);
    }
    for (auto& [id, thread] : threads) thread.join();
  }

 private:
  /// Threads of queues that are gone are collected when the next one is made.
  void joinFinished() {
    std::vector<std::thread> finished;
    {
      MutexLock lock(mutex_);
      for (const std::size_t id : finished_) {
        std::erase_if(threads_, [&](auto& each) {
          if (each.first != id) return false;
          finished.push_back(std::move(each.second));
          return true;
        });
      }
      finished_.clear();
    }
    for (std::thread& thread : finished) thread.join();
  }

  static constexpr std::uint32_t kClosed = std::uint32_t{1} << 31;
  /// How many pieces of work are enqueued or run, and kClosed once no more is taken. No mutex:
  /// every thread of the process comes by twice for each piece of work.
  std::atomic<std::uint32_t> busy_ = 0;

  Mutex mutex_;
  std::size_t nextId_ QX_GUARDED_BY(mutex_) = 0;
  std::vector<std::pair<std::size_t, std::thread>> threads_ QX_GUARDED_BY(mutex_);
  std::vector<std::size_t> finished_ QX_GUARDED_BY(mutex_);
  std::vector<std::pair<std::weak_ptr<void>, std::function<void()>>> closers_ QX_GUARDED_BY(mutex_);
};

/// What a queue shares with its worker threads; they keep it until it is drained.
class PosixDispatch::QueueState : public std::enable_shared_from_this<QueueState> {
 public:
  QueueState(std::shared_ptr<Workers> workers, std::string label, std::size_t threads)
      : workers_(std::move(workers)), label_(std::move(label)), threadLimit_(threads) {}

  const std::string& label() const { return label_; }

  /// False when the dispatch is shut down; `work` is untouched then.
  bool enqueue(Work& work) {
    if (!workers_->begin()) return false;
    bool needsThread = false;
    {
      MutexLock lock(mutex_);
      items_.push_back(std::move(work));
      needsThread = threads_ < threadLimit_ && items_.size() > idle_;
      if (needsThread) ++threads_;
    }
    if (needsThread) {
      workers_->spawn(label_, [self = shared_from_this()] { self->serve(); });
    } else {
      wake_.notifyOne();
    }
    return true;
  }
  /// The workers return once nothing is left.
  void close() {
    MutexLock lock(mutex_);
    closed_ = true;
    wake_.notifyAll();
  }

 private:
  void serve() {
    const RunningOn here(this);
    for (;;) {
      Work work;
      {
        MutexLock lock(mutex_);
        ++idle_;
        while (items_.empty() && !closed_) wake_.wait(mutex_);
        --idle_;
        if (items_.empty()) return;
        work = std::move(items_.front());
        items_.pop_front();
      }
      work();
      work = nullptr;  // Captures end here, on the queue.
      workers_->end();
    }
  }

  const std::shared_ptr<Workers> workers_;
  const std::string label_;
  const std::size_t threadLimit_;
  Mutex mutex_;
  Condition wake_;
  std::deque<Work> items_ QX_GUARDED_BY(mutex_);
  std::size_t threads_ QX_GUARDED_BY(mutex_) = 0;
  /// Threads that wait for work.
  std::size_t idle_ QX_GUARDED_BY(mutex_) = 0;
  bool closed_ QX_GUARDED_BY(mutex_) = false;
};

/// The handle of a serial queue, or of the global one.
class PosixDispatch::WorkerQueue : public DispatchQueue {
 public:
  WorkerQueue(const std::shared_ptr<Workers>& workers, std::string label, std::size_t threads)
      : state_(std::make_shared<QueueState>(workers, std::move(label), threads)) {
    workers->addCloser(state_, [state = state_.get()] { state->close(); });
  }
  ~WorkerQueue() override { state_->close(); }

  std::string_view label() const override { return state_->label(); }
  void async(Work work) override {
    // Kept here: the work may drop this queue before enqueue() is done.
    const std::shared_ptr<QueueState> state = state_;
    state->enqueue(work);
  }
  void sync(Work work) override {
    const std::shared_ptr<QueueState> state = state_;
    if (currentQueue == state.get()) fatalSync(label());
    Done done;
    Work item = [&work, &done] {
      work();
      work = nullptr;
      done.set();
    };
    if (state->enqueue(item)) {
      done.wait();
    } else {
      work();  // Shut down: nothing else runs on this queue any more.
    }
  }

 private:
  const std::shared_ptr<QueueState> state_;
};

class PosixDispatch::MainQueue : public DispatchQueue {
 public:
  explicit MainQueue(std::function<void(Work)> poster) : poster_(std::move(poster)) {}

  std::string_view label() const override { return "main"; }
  void async(Work work) override {
    put_.fetch_add(1, std::memory_order_relaxed);
    if (poster_) {
      poster_([this, alive = std::weak_ptr<const bool>(alive_), work = std::move(work)]() mutable {
        if (alive.expired()) return;
        started_.fetch_add(1, std::memory_order_relaxed);
        const RunningOn here(this);
        work();
        work = nullptr;
      });
      return;
    }
    // An empty piece of work is a stop, so none of the host's may look like one.
    if (work) enqueue(std::move(work));
  }
  void sync(Work work) override {
    if (currentQueue == this) fatalSync(label());
    Done done;
    async([&work, &done] {
      work();
      work = nullptr;
      done.set();
    });
    done.wait();
  }

  void run() {
    const RunningOn here(this);
    for (;;) {
      Work work;
      {
        MutexLock lock(mutex_);
        while (items_.empty()) wake_.wait(mutex_);
        work = std::move(items_.front());
        items_.pop_front();
      }
      if (!work) return;
      started_.fetch_add(1, std::memory_order_relaxed);
      work();
    }
  }
  MainQueueUse use() const {
    // In this order, so that what is started after the first look does not count as waiting.
    const std::uint64_t put = put_.load();
    return {.put = put, .started = started_.load()};
  }
  void stop() { enqueue({}); }

 private:
  void enqueue(Work work) {
    MutexLock lock(mutex_);
    items_.push_back(std::move(work));
    // Under the lock: when this is the stop, the thread in run() may destroy this queue at once.
    wake_.notifyOne();
  }

  const std::function<void(Work)> poster_;
  std::atomic<std::uint64_t> put_ = 0;
  std::atomic<std::uint64_t> started_ = 0;
  /// What the host's loop still holds when this queue is gone is dropped.
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  Mutex mutex_;
  Condition wake_;
  /// An empty one stops run().
  std::deque<Work> items_ QX_GUARDED_BY(mutex_);
};

class PosixDispatch::ThreadSemaphore : public Semaphore {
 public:
  explicit ThreadSemaphore(int count) : count_(count) {}
  void signal() override {
    MutexLock lock(mutex_);
    ++count_;
    // Under the lock: the waiter may destroy the semaphore as soon as it has the count.
    risen_.notifyOne();
  }
  void wait() override {
    MutexLock lock(mutex_);
    while (count_ <= 0) risen_.wait(mutex_);
    --count_;
  }

 private:
  Mutex mutex_;
  Condition risen_;
  int count_ QX_GUARDED_BY(mutex_);
};

/// What a timer shares with its thread and with the ticks it has put on its queue.
///
///     made ──► scheduled ──┐
///       │                  ├──► ticking ──► stopped
///       └────► resumed ────┘
struct PosixDispatch::TimerState : std::enable_shared_from_this<TimerState> {
  enum class Life { made, scheduled, resumed, ticking, stopped };

  explicit TimerState(DispatchQueue& onQueue) : queue(onQueue) {}

  /// True when the timer's thread is to start: the timer has been both scheduled and resumed.
  bool takeStep(Life step) QX_REQUIRES(mutex) {
    if (life == Life::made || life == step) {
      life = step;
      return false;
    }
    if (life != Life::scheduled && life != Life::resumed) return false;
    life = Life::ticking;
    return true;
  }

  /// The timer's thread: puts a tick on the queue whenever one is due.
  void serve() {
    SteadyClock::time_point due = SteadyClock::now();
    for (;;) {
      {
        MutexLock lock(mutex);
        while (life == Life::ticking && SteadyClock::now() < due) changed.waitUntil(mutex, due);
        if (life == Life::stopped) return;
        due += interval;
        const TickStep step = stepOf(ticks, TickEvent::due);
        ticks = step.next;
        if (!step.act) continue;
        usesQueue = true;
      }
      queue.async([state = shared_from_this()] { state->tick(); });
      MutexLock lock(mutex);
      usesQueue = false;
      changed.notifyAll();
    }
  }
  void tick() {
    for (TickEvent event = TickEvent::begun;; event = TickEvent::ended) {
      Work now;
      {
        MutexLock lock(mutex);
        const TickStep step = stepOf(ticks, event);
        ticks = step.next;
        const bool isRunner = event == TickEvent::ended || step.act;
        if (!step.act || life == Life::stopped) {
          // The thread in which the handler runs is the one that goes.
          if (isRunner) runner = std::thread::id();
          changed.notifyAll();
          return;
        }
        runner = std::this_thread::get_id();
        now = handler;
      }
      if (now) now();
    }
  }
  void stop() {
    MutexLock lock(mutex);
    life = Life::stopped;
    changed.notifyAll();
  }
  void waitUntilStill() {
    MutexLock lock(mutex);
    // The queue need not live any longer than the timer.
    while (usesQueue) changed.wait(mutex);
    // A handler may destroy its own timer; it would wait for itself.
    while (runner != std::thread::id() && runner != std::this_thread::get_id()) changed.wait(mutex);
  }

  DispatchQueue& queue;
  Mutex mutex;
  Condition changed;
  Work handler QX_GUARDED_BY(mutex);
  SteadyClock::duration interval QX_GUARDED_BY(mutex){};
  Life life QX_GUARDED_BY(mutex) = Life::made;
  Ticks ticks QX_GUARDED_BY(mutex) = Ticks::none;
  /// The timer's thread is putting a tick on the queue.
  bool usesQueue QX_GUARDED_BY(mutex) = false;
  /// The thread that runs the handler; none while it does not run.
  std::thread::id runner QX_GUARDED_BY(mutex);
};

class PosixDispatch::ThreadTimer : public Timer {
 public:
  ThreadTimer(std::shared_ptr<Workers> workers, DispatchQueue& queue)
      : workers_(std::move(workers)), state_(std::make_shared<TimerState>(queue)) {
    workers_->addCloser(state_, [state = state_.get()] { state->stop(); });
  }
  ~ThreadTimer() override {
    state_->stop();
    state_->waitUntilStill();
  }

  void setEventHandler(Work handler) override {
    MutexLock lock(state_->mutex);
    state_->handler = std::move(handler);
  }
  // The kernel's own slack (50 us) is all the leeway there is.
  void scheduleNow(double intervalSeconds, double /*leewaySeconds*/) override {
    bool ready = false;
    {
      MutexLock lock(state_->mutex);
      state_->interval = std::chrono::duration_cast<SteadyClock::duration>(
          std::chrono::duration<double>(intervalSeconds));
      ready = state_->takeStep(TimerState::Life::scheduled);
    }
    if (ready) start();
  }
  void resume() override {
    bool ready = false;
    {
      MutexLock lock(state_->mutex);
      ready = state_->takeStep(TimerState::Life::resumed);
    }
    if (ready) start();
  }

 private:
  void start() {
    // Kept here: the first tick may destroy this timer before the thread that made it comes back.
    const std::shared_ptr<Workers> workers = workers_;
    if (!workers->begin()) return;
    workers->spawn("qx.timer", [state = state_] { state->serve(); });
    workers->end();
  }

  const std::shared_ptr<Workers> workers_;
  const std::shared_ptr<TimerState> state_;
};

PosixDispatch::PosixDispatch(std::function<void(Work)> mainQueuePoster)
    : workers_(std::make_shared<Workers>()),
      main_(std::make_unique<MainQueue>(std::move(mainQueuePoster))),
      global_(std::make_unique<WorkerQueue>(workers_, "global", kGlobalThreads)) {}

PosixDispatch::~PosixDispatch() {
  shutDown();
}

void PosixDispatch::shutDown() {
  workers_->closeWhenQuiet();
  workers_->joinAll();
}

std::shared_ptr<DispatchQueue> PosixDispatch::makeSerialQueue(std::string label) {
  return std::make_shared<WorkerQueue>(workers_, std::move(label), 1);
}

DispatchQueue& PosixDispatch::mainQueue() {
  return *main_;
}

DispatchQueue& PosixDispatch::globalQueue() {
  return *global_;
}

std::shared_ptr<Semaphore> PosixDispatch::makeSemaphore(int count) {
  return std::make_shared<ThreadSemaphore>(count);
}

std::unique_ptr<Timer> PosixDispatch::makeTimer(DispatchQueue& queue) {
  return std::make_unique<ThreadTimer>(workers_, queue);
}

void PosixDispatch::runMainQueue() {
  main_->run();
}

PosixDispatch::MainQueueUse PosixDispatch::mainQueueUse() const {
  return main_->use();
}

void PosixDispatch::stopMainQueue() {
  main_->stop();
}

}  // namespace qx
