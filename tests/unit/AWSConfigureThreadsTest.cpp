#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Classes/TaskScheduler.h"
#include "unit/AWSConfigureFixture.h"
#include "unit/ThreadDispatch.h"

namespace qx {
namespace {

// ---- Threads

class AWSConfigureThreadsTest : public testing::Test {
 protected:
  AWSConfigureThreadsTest() {
    fakes_.clock.set(kNow);
    fakes_.mediator.signIn("u1", "t1", "https://backend.test");
    fakes_.messageClients.answer(
        kApi, Dictionary{{"upload_token_map", Dictionary{{"avatar", record(kLater)}}}});
  }
  static void onThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
  }
  /// Runs the work that every queue held at the time of the call.
  void drain() {
    auto& dispatch = library.platform.dispatch;
    const auto reached = dispatch.makeSemaphore(0);
    library.configure.getConfig("avatar", true,
                                [reached](const auto&, const auto&) { reached->signal(); });
    reached->wait();
    dispatch.globalQueue().sync([] {});
  }

  FakePlatform& fakes_ = FakePlatform::kept();
  // The threads of the queues use both objects until the process ends.
  ThreadDispatch& dispatch_ = ThreadDispatch::make();
  Library& library = keptLibrary(fakes_.seams().with(dispatch_));
};

TEST_F(AWSConfigureThreadsTest, RequestsFromSeveralThreadsShareOneFetchAndAreAllAnswered) {
  const auto answered = library.platform.dispatch.makeSemaphore(0);
  std::atomic<int> successes = 0;
  onThreads(4, [&](int) {
    for (int i = 0; i < 50; ++i) {
      library.configure.getConfig(
          "avatar", false,
          [&successes, answered](const auto& model, const AWSCallbackStatus& status) {
            if (model && status.succeeded()) ++successes;
            answered->signal();
          });
    }
  });
  for (int i = 0; i < 200; ++i) answered->wait();
  EXPECT_EQ(successes, 200);
  EXPECT_EQ(fakes_.messageClients.requests(kApi).size(), 1U);
  drain();
}

TEST_F(AWSConfigureThreadsTest, OneIdentityAppliedBySeveralThreadsMakesOneScheduler) {
  std::vector<std::shared_ptr<TaskScheduler>> seen(4);
  onThreads(4, [&](int i) {
    library.configure.full(identity("u1"));
    library.configure.retryFire();
    drain();
    seen[static_cast<std::size_t>(i)] = library.configure.scheduler.load();
  });
  EXPECT_EQ(fakes_.messageClients.managers().size(), 1U);
  for (const auto& each : seen) EXPECT_EQ(each, seen[0]);
}

TEST_F(AWSConfigureThreadsTest, IdentityChangesRequestsAndFieldsMayMeetOnAnyThread) {
  std::atomic<int> answers = 0;
  onThreads(4, [&](int thread) {
    for (int i = 0; i < 25; ++i) {
      const std::string user = "u" + std::to_string(i % 3);
      fakes_.mediator.answer("Account_GetUserId", Value(user));
      library.configure.userDidChange();
      library.configure.needServerResize = thread % 2 == 0;
      library.configure.backgroundUploadCallback.store(
          [](const auto&, const auto&, const auto&, const auto&) {});
      library.configure.getConfig("avatar", false, [&](const auto&, const auto&) { ++answers; });
      library.configure.backgroundUploadItem("https://cdn.test/a.jpg", {{"uuid", "77"}});
    }
  });
  // A request after all others is answered after them, because none of them fetches again once the
  // identity no longer changes.
  drain();
  drain();
  EXPECT_EQ(answers, 100);
}

}  // namespace
}  // namespace qx
