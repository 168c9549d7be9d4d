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

/// The queue whose work runs on this thread. If such work runs inside other work, the innermost
/// queue.
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

/// Lets one thread wait until another thread has done something.
class Done {
 public:
  void set() {
    MutexLock lock(mutex_);
    done_ = true;
    // Notified under the lock, because the waiter may destroy this object as soon as it has seen
    // done_.
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
  // The kernel allows 15 characters.
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

}  // namespace

/// All threads of one PosixDispatch, and the amount of work in their queues, for which shutDown()
/// waits. Every queue and timer shares this object.
class PosixDispatch::Workers {
 public:
  /// Counts one piece of work. False when the dispatch has been shut down.
  bool begin() {
    if ((busy_.fetch_add(1) & kClosed) == 0) return true;
    end();
    return false;
  }
  void end() {
    if (busy_.fetch_sub(1) == 1) busy_.notify_all();
  }
  /// Call this only between begin() and end(), because a thread is made for work.
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
  /// closeWhenQuiet() calls `close`, which makes a worker return or a timer stop.
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
  /// Joins the threads of queues that no longer exist. It runs when the next thread is made.
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
  /// The number of pieces of work that are enqueued or running, plus kClosed after the end. It is
  /// an atomic, not guarded by a mutex, because every thread changes it twice for each piece of
  /// work.
  std::atomic<std::uint32_t> busy_ = 0;

  Mutex mutex_;
  std::size_t nextId_ QX_GUARDED_BY(mutex_) = 0;
  std::vector<std::pair<std::size_t, std::thread>> threads_ QX_GUARDED_BY(mutex_);
  std::vector<std::size_t> finished_ QX_GUARDED_BY(mutex_);
  std::vector<std::pair<std::weak_ptr<void>, std::function<void()>>> closers_ QX_GUARDED_BY(mutex_);
};

/// The part of a queue that its threads share. They keep it until all work is done.
class PosixDispatch::QueueState : public std::enable_shared_from_this<QueueState> {
 public:
  QueueState(std::shared_ptr<Workers> workers, std::string label, std::size_t threads)
      : workers_(std::move(workers)), label_(std::move(label)), threadLimit_(threads) {}

  const std::string& label() const { return label_; }

  /// False when the dispatch has been shut down. `work` is unchanged then.
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
  /// Makes the threads return when no work is left.
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
      work = nullptr;  // Destroys the captures here, on the queue.
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
  /// The number of threads that wait for work.
  std::size_t idle_ QX_GUARDED_BY(mutex_) = 0;
  bool closed_ QX_GUARDED_BY(mutex_) = false;
};

/// The handle of a serial queue or of the global queue.
class PosixDispatch::WorkerQueue : public DispatchQueue {
 public:
  WorkerQueue(const std::shared_ptr<Workers>& workers, std::string label, std::size_t threads)
      : state_(std::make_shared<QueueState>(workers, std::move(label), threads)) {
    workers->addCloser(state_, [state = state_.get()] { state->close(); });
  }
  ~WorkerQueue() override { state_->close(); }

  std::string_view label() const override { return state_->label(); }
  void async(Work work) override {
    // The state is kept here, because the work may destroy this queue before enqueue() returns.
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
      work();  // After a shutdown nothing else runs on this queue.
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
    // An empty piece of work is a stop, so an empty piece of the host's is dropped.
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
  /// Drops the remaining work, and all work that comes later.
  void close() {
    std::deque<Work> dropped;
    {
      MutexLock lock(mutex_);
      closed_ = true;
      dropped.swap(items_);
    }
    // Destroyed outside the lock, because the captures of the work may call this queue then.
    dropped.clear();
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
    // `put_` is read first, so that work that is started between the two reads does not count as
    // waiting.
    const std::uint64_t put = put_.load();
    return {.put = put, .started = started_.load()};
  }
  void stop() { enqueue({}); }

 private:
  void enqueue(Work work) {
    MutexLock lock(mutex_);
    if (closed_) return;
    items_.push_back(std::move(work));
    // Notified under the lock, because the thread in run() may destroy this queue as soon as it has
    // taken a stop.
    wake_.notifyOne();
  }

  const std::function<void(Work)> poster_;
  std::atomic<std::uint64_t> put_ = 0;
  std::atomic<std::uint64_t> started_ = 0;
  /// Work that the host's loop still holds when this queue is destroyed is dropped.
  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  Mutex mutex_;
  Condition wake_;
  bool closed_ QX_GUARDED_BY(mutex_) = false;
  /// An empty piece of work stops run().
  std::deque<Work> items_ QX_GUARDED_BY(mutex_);
};

class PosixDispatch::ThreadSemaphore : public Semaphore {
 public:
  explicit ThreadSemaphore(int count) : count_(count) {}
  void signal() override {
    MutexLock lock(mutex_);
    ++count_;
    // Notified under the lock, because the waiter may destroy the semaphore as soon as it has taken
    // the count.
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

/// The part of a timer that its thread and the ticks on its queue share.
///
///     made ──► scheduled ──┐
///       │                  ├──► ticking ──► stopped
///       └────► resumed ────┘
struct PosixDispatch::TimerState : std::enable_shared_from_this<TimerState> {
  enum class Life { made, scheduled, resumed, ticking, stopped };

  explicit TimerState(DispatchQueue& onQueue) : queue(onQueue) {}

  /// True when the timer has been both scheduled and resumed, so that its thread shall start.
  bool takeStep(Life step) QX_REQUIRES(mutex) {
    if (life == Life::made || life == step) {
      life = step;
      return false;
    }
    if (life != Life::scheduled && life != Life::resumed) return false;
    life = Life::ticking;
    return true;
  }

  /// Runs on the timer's thread, and puts a tick on the queue whenever one is due.
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
          // The thread that runs the handler leaves.
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
    // The queue need not outlive the timer.
    while (usesQueue) changed.wait(mutex);
    // A handler may destroy its own timer. It must not wait for itself.
    while (runner != std::thread::id() && runner != std::this_thread::get_id()) changed.wait(mutex);
  }

  DispatchQueue& queue;
  Mutex mutex;
  Condition changed;
  Work handler QX_GUARDED_BY(mutex);
  SteadyClock::duration interval QX_GUARDED_BY(mutex){};
  Life life QX_GUARDED_BY(mutex) = Life::made;
  Ticks ticks QX_GUARDED_BY(mutex) = Ticks::none;
  /// True while the timer's thread puts a tick on the queue.
  bool usesQueue QX_GUARDED_BY(mutex) = false;
  /// The thread that runs the handler; no thread while it does not run.
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
  // The leeway is not used. The kernel's own slack is 50 us.
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
    // The workers are kept here, because the first tick may destroy this timer before spawn()
    // returns.
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
  main_->close();
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
