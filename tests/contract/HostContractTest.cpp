// The contracts of the smaller seams, for the fakes and the real ones: mediator, notification
// centre, clock, randomness, identifiers, reachability.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/FakeClock.h"
#include "fakes/FakeHost.h"
#include "fakes/FakeMediator.h"
#include "fakes/FakeValues.h"
#include "platforms/linux/LinuxReachability.h"
#include "platforms/shared/InProcessNotificationCentre.h"
#include "platforms/shared/Mediator.h"
#include "platforms/shared/SystemClock.h"

namespace qx {
namespace {

using testing::ElementsAre;

// ---- Mediator

struct ScriptedMediator {
  FakeMediator mediator;
};
struct RealMediator {
  Mediator mediator{nullptr};
};

/// Notes each action, and knows "Action_A:" only.
class NotingTarget : public MediatorTarget {
 public:
  NotingTarget(std::vector<std::string>& notes, std::string name)
      : notes_(notes), name_(std::move(name)) {}
  ~NotingTarget() override { notes_.push_back(name_ + " gone"); }
  bool performAction(std::string_view action, const Dictionary& parameters) override {
    if (action != "Action_A:") return false;
    notes_.push_back(name_ + " " + readText(parameters, "key").value_or("-"));
    return true;
  }

 private:
  std::vector<std::string>& notes_;
  const std::string name_;
};

template <typename T>
class MediatorContract : public testing::Test {
 protected:
  QXMediator& mediator() { return underTest_.mediator; }
  void registerNoting(const std::string& target, const std::string& name) {
    mediator().registerTarget(
        target, [this, name] { return std::make_unique<NotingTarget>(notes_, name); });
  }

  std::vector<std::string> notes_;
  T underTest_;
};

using Mediators = testing::Types<ScriptedMediator, RealMediator>;
TYPED_TEST_SUITE(MediatorContract, Mediators);

TYPED_TEST(MediatorContract, AFreshTargetServesEachAction) {
  this->registerNoting("Target_X", "x");
  this->mediator().performTarget("Target_X", "Action_A:", {{"key", "1"}});
  this->mediator().performTarget("Target_X", "Action_A:", {{"key", "2"}});
  EXPECT_THAT(this->notes_, ElementsAre("x 1", "x gone", "x 2", "x gone"));
}

TYPED_TEST(MediatorContract, ALaterTargetOfTheSameNameReplacesTheEarlier) {
  this->registerNoting("Target_X", "old");
  this->registerNoting("Target_X", "new");
  this->mediator().performTarget("Target_X", "Action_A:", {});
  EXPECT_THAT(this->notes_, ElementsAre("new -", "new gone"));
}

TYPED_TEST(MediatorContract, UnknownTargetsActionsAndSelectorsDoNothing) {
  this->registerNoting("Target_X", "x");
  this->mediator().performTarget("Target_Y", "Action_A:", {});
  this->mediator().performTarget("Target_X", "Action_B:", {});
  EXPECT_TRUE(this->mediator().perform("Account_GetUserId", {}).isNull());
  EXPECT_THAT(this->notes_, ElementsAre("x gone"));
}

TYPED_TEST(MediatorContract, TheHostsAnswerGetsTheArguments) {
  this->underTest_.mediator.answer(
      "Tracking_Event:parameters:", [](const std::vector<Value>& arguments) -> Value {
        return arguments.at(1);
      });
  EXPECT_EQ(this->mediator().perform("Tracking_Event:parameters:", {"qx_aws", 7}), Value(7));
}

TYPED_TEST(MediatorContract, AnAnswerMayAskTheMediatorAgain) {
  this->underTest_.mediator.answer("inner", [](const std::vector<Value>&) -> Value { return 7; });
  this->underTest_.mediator.answer("outer", [this](const std::vector<Value>&) -> Value {
    return this->mediator().perform("inner", {});
  });
  EXPECT_EQ(this->mediator().perform("outer", {}), Value(7));
}

// ---- Notification centre

template <typename T>
class NotificationCentreContract : public testing::Test {
 protected:
  T centre_;
};

using Centres = testing::Types<FakeNotificationCentre, InProcessNotificationCentre>;
TYPED_TEST_SUITE(NotificationCentreContract, Centres);

TYPED_TEST(NotificationCentreContract, HandlersOfTheNameAreCalledInOrder) {
  std::vector<std::string> calls;
  this->centre_.addObserver("a", [&] { calls.emplace_back("first"); });
  this->centre_.addObserver("b", [&] { calls.emplace_back("other"); });
  this->centre_.addObserver("a", [&] { calls.emplace_back("second"); });
  this->centre_.post("a");
  this->centre_.post("nobody listens");
  EXPECT_THAT(calls, ElementsAre("first", "second"));
}

TYPED_TEST(NotificationCentreContract, RegisteringTwiceMeansBeingCalledTwice) {
  int calls = 0;
  const std::function<void()> handler = [&] { ++calls; };
  this->centre_.addObserver("a", handler);
  this->centre_.addObserver("a", handler);
  this->centre_.post("a");
  EXPECT_EQ(calls, 2);
}

TYPED_TEST(NotificationCentreContract, AHandlerMayAddAnotherThatHearsTheNextPost) {
  int late = 0;
  bool added = false;
  this->centre_.addObserver("a", [&] {
    if (!std::exchange(added, true)) this->centre_.addObserver("a", [&] { ++late; });
  });
  this->centre_.post("a");
  EXPECT_EQ(late, 0);
  this->centre_.post("a");
  EXPECT_EQ(late, 1);
}

// ---- Randomness, identifiers, digests

template <typename T>
class UuidContract : public testing::Test {};
using Uuids = testing::Types<FakeUuid, SystemUuid>;
TYPED_TEST_SUITE(UuidContract, Uuids);

TYPED_TEST(UuidContract, EachIsFreshAndInCanonicalUpperCase) {
  TypeParam uuid;
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = uuid.random();
    EXPECT_THAT(text, testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                            "[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    EXPECT_TRUE(seen.insert(text).second) << text;
  }
}

template <typename T>
class RandomContract : public testing::Test {};
using Randoms = testing::Types<FakeRandom, SystemRandom>;
TYPED_TEST_SUITE(RandomContract, Randoms);

TYPED_TEST(RandomContract, ValuesDiffer) {
  TypeParam random;
  std::set<std::uint32_t> seen;
  for (int i = 0; i < 100; ++i) seen.insert(random.next());
  // A hundred draws of 2^32 numbers contain an equal pair with a chance of one in a million.
  EXPECT_GE(seen.size(), 99U);
}

// ---- Clock

TEST(ClockContract, TheFakeClockMovesOnlyWhenMoved) {
  FakeClock clock(1000.5);
  EXPECT_EQ(clock.now(), 1000.5);
  clock.advance(60);
  EXPECT_EQ(clock.now(), 1060.5);
}

TEST(ClockContract, TheFakeClockRingsEachAlarmAtItsOwnTimeInOrder) {
  FakeClock clock(0);
  std::vector<std::pair<std::string, double>> rung;
  clock.addAlarm(20, [&] { rung.emplace_back("late", clock.now()); });
  clock.addAlarm(10, [&] {
    rung.emplace_back("early", clock.now());
    clock.addAlarm(15, [&] { rung.emplace_back("between", clock.now()); });
  });
  const auto cancelled = clock.addAlarm(12, [&] { rung.emplace_back("cancelled", clock.now()); });
  clock.cancelAlarm(cancelled);
  clock.advance(20);
  EXPECT_THAT(rung, ElementsAre(testing::Pair("early", 10), testing::Pair("between", 15),
                                testing::Pair("late", 20)));
}

TEST(ClockContract, TheSystemClockTellsTheTimeOfTheSystem) {
  // time() is not used, because it may still yield the previous second for as long as a tick of the
  // kernel takes.
  const auto seconds = [] {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(sinceEpoch).count();
  };
  constexpr double kRounding = 1e-3;
  const double before = seconds();
  const double now = SystemClock().now();
  EXPECT_GE(now, before - kRounding);
  EXPECT_LE(now, seconds() + kRounding);
}

// ---- Reachability

TEST(ReachabilityContract, TheFakeTellsListenersOfChangesOnly) {
  FakeReachability tool;
  std::vector<bool> told;
  tool.startListening([&](bool reachable, bool) { told.push_back(reachable); });
  EXPECT_TRUE(tool.isReachable());
  tool.setReachable(true);
  tool.setReachable(false);
  EXPECT_FALSE(tool.isReachable());
  tool.setReachable(true);
  EXPECT_THAT(told, ElementsAre(false, true));
}

/// An address that cannot be resolved, which shows without asking a name server.
constexpr char kUnresolvable[] = "fe80::1%no-such-interface";

TEST(ReachabilityContract, LoopbackIsReachable) {
  EXPECT_TRUE(LinuxReachability({"127.0.0.1"}).isReachable());
  EXPECT_TRUE(LinuxReachability({"localhost"}).isReachable());
}

TEST(ReachabilityContract, OneHostWithARouteIsEnough) {
  EXPECT_TRUE(LinuxReachability({kUnresolvable, "127.0.0.1"}).isReachable());
}

TEST(ReachabilityContract, AHostThatDoesNotResolveIsNotReachable) {
  EXPECT_FALSE(LinuxReachability({kUnresolvable}).isReachable());
}

}  // namespace
}  // namespace qx
