#include "fakes/FakeDispatch.h"

#include <algorithm>
#include <utility>

#include "platform/Error.h"

namespace qx {

class FakeDispatch::Queue : public DispatchQueue, public std::enable_shared_from_this<Queue> {
 public:
  Queue(FakeDispatch& dispatch, std::string label, bool concurrent)
      : dispatch_(dispatch), label_(std::move(label)), concurrent_(concurrent) {}

  std::string_view label() const override { return label_; }
  void async(Work work) override { dispatch_.enqueue({shared_from_this(), this, std::move(work)}); }
  void sync(Work work) override { dispatch_.sync(*this, std::move(work)); }

  bool concurrent() const { return concurrent_; }

 private:
  FakeDispatch& dispatch_;
  const std::string label_;
  const bool concurrent_;
};

class FakeDispatch::FakeSemaphore : public Semaphore {
 public:
  FakeSemaphore(FakeDispatch& dispatch, int count) : dispatch_(dispatch), count_(count) {}

  void signal() override {
    MutexLock lock(mutex_);
    ++count_;
  }
  void wait() override {
    bool askedTheTest = false;
    while (!take()) {
      if (dispatch_.runNext()) {
        askedTheTest = false;
      } else if (dispatch_.onIdle && !askedTheTest) {
        askedTheTest = true;
        dispatch_.onIdle();
      } else {
        fatal("deadlock: a semaphore is waited for on \"" + dispatch_.currentQueueLabel() +
              "\" and no work is left that could signal it");
      }
    }
  }

 private:
  bool take() {
    MutexLock lock(mutex_);
    if (count_ <= 0) return false;
    --count_;
    return true;
  }

  FakeDispatch& dispatch_;
  Mutex mutex_;
  int count_ QX_GUARDED_BY(mutex_);
};

class FakeDispatch::FakeTimer : public Timer {
 public:
  FakeTimer(FakeClock& clock, DispatchQueue& queue)
      : clock_(clock), queue_(queue), state_(std::make_shared<State>()) {}
  ~FakeTimer() override {
    state_->alive = false;
    clock_.cancelAlarm(alarm_);
  }

  void setEventHandler(Work handler) override { state_->handler = std::move(handler); }
  void scheduleNow(double intervalSeconds, double /*leewaySeconds*/) override {
    interval_ = intervalSeconds;
    scheduled_ = true;
    start();
  }
  void resume() override {
    resumed_ = true;
    start();
  }

 private:
  /// Ticks on the queue share this state. They may outlive the timer.
  struct State {
    Work handler;
    bool alive = true;
    bool tickPending = false;
  };

  void start() {
    if (!scheduled_ || !resumed_ || started_) return;
    started_ = true;
    due_ = clock_.now();
    tick();
  }
  void tick() {
    if (!state_->tickPending) {
      state_->tickPending = true;
      queue_.async([state = state_] {
        if (state->alive && state->handler) state->handler();
        state->tickPending = false;
      });
    }
    due_ += interval_;
    alarm_ = clock_.addAlarm(due_, [this] { tick(); });
  }

  FakeClock& clock_;
  DispatchQueue& queue_;
  std::shared_ptr<State> state_;
  double interval_ = 0;
  double due_ = 0;
  bool scheduled_ = false;
  bool resumed_ = false;
  bool started_ = false;
  FakeClock::AlarmId alarm_ = 0;
};

FakeDispatch::FakeDispatch(FakeClock& clock)
    : clock_(clock),
      main_(std::make_shared<Queue>(*this, "main", false)),
      global_(std::make_shared<Queue>(*this, "global", true)) {}

FakeDispatch::~FakeDispatch() = default;

std::shared_ptr<DispatchQueue> FakeDispatch::makeSerialQueue(std::string label) {
  return std::make_shared<Queue>(*this, std::move(label), false);
}

DispatchQueue& FakeDispatch::mainQueue() {
  return *main_;
}

DispatchQueue& FakeDispatch::globalQueue() {
  return *global_;
}

std::shared_ptr<Semaphore> FakeDispatch::makeSemaphore(int count) {
  return std::make_shared<FakeSemaphore>(*this, count);
}

std::unique_ptr<Timer> FakeDispatch::makeTimer(DispatchQueue& queue) {
  return std::make_unique<FakeTimer>(clock_, queue);
}

void FakeDispatch::runUntilIdle() {
  while (runNext()) {
  }
}

bool FakeDispatch::runNext() {
  return runFirst([this](const Queue& queue) { return queue.concurrent() || !isExecuting(queue); });
}

std::size_t FakeDispatch::pendingCount() {
  MutexLock lock(mutex_);
  return items_.size();
}

std::size_t FakeDispatch::pendingCount(std::string_view label) {
  MutexLock lock(mutex_);
  return static_cast<std::size_t>(
      std::count_if(items_.begin(), items_.end(),
                    [label](const Item& item) { return item.queue->label() == label; }));
}

std::string FakeDispatch::currentQueueLabel() const {
  return executing_.empty() ? std::string() : std::string(executing_.back()->label());
}

void FakeDispatch::enqueue(Item item) {
  MutexLock lock(mutex_);
  items_.push_back(std::move(item));
}

bool FakeDispatch::runFirst(const std::function<bool(const Queue&)>& wanted) {
  Item item;
  {
    MutexLock lock(mutex_);
    const auto found = std::find_if(items_.begin(), items_.end(),
                                    [&](const Item& each) { return wanted(*each.queue); });
    if (found == items_.end()) return false;
    item = std::move(*found);
    items_.erase(found);
  }
  runOn(*item.queue, std::move(item.work));
  return true;
}

bool FakeDispatch::isExecuting(const Queue& queue) const {
  return std::find(executing_.begin(), executing_.end(), &queue) != executing_.end();
}

void FakeDispatch::runOn(Queue& queue, Work work) {
  executing_.push_back(&queue);
  history_.emplace_back(queue.label());
  work();
  work = nullptr;  // The captures are destroyed on the queue, too.
  executing_.pop_back();
}

void FakeDispatch::sync(Queue& queue, Work work) {
  if (isExecuting(queue)) {
    fatal("deadlock: sync on \"" + std::string(queue.label()) + "\" from its own work");
  }
  if (!queue.concurrent()) {
    while (runFirst([&queue](const Queue& each) { return &each == &queue; })) {
    }
  }
  runOn(queue, std::move(work));
}

}  // namespace qx
