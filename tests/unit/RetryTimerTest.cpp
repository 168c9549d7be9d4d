#include "Classes/RetryTimer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

/// Each user has one stored task with a scope of its own. Every attempt fails, because the backend
/// has no answer. attempts() lists the scopes that ticks have tried.
class RetryTimerTest : public testing::Test {
 protected:
  RetryTimerTest() {
    store("u1", "scope of u1");
    store("u2", "scope of u2");
    library.configure.backgroundUploadCallback.store(
        [this](const std::string& scope, const std::optional<std::string>&, const AWSParameterMap&,
               const std::optional<Error>&) { attempts_.push_back(scope); });
  }

  void store(const std::string& user, const std::string& scope) {
    const std::string folder = "aws-0011/" + user;
    platform_.files.put("/documents/" + folder + "/a.jpg", "bytes");
    platform_.files.put(
        "/documents/" + folder + "/logs.plist",
        R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>a.jpg</key><dict>)"
        "<key>base</key><dict><key>file_path</key><string>" +
            folder + "/a.jpg</string><key>module_key</key><string>" + scope +
            "</string><key>upload_count</key><integer>0</integer></dict>"
            "<key>extra</key><dict></dict></dict></dict></plist>");
  }
  void signIn(const std::string& user) {
    platform_.mediator.signIn(user, "token", "https://backend.test");
    library.configure.retryFire();
  }
  void run() { platform_.dispatch.runUntilIdle(); }
  void advance(double seconds) {
    platform_.clock.advance(seconds);
    run();
  }

  FakePlatform& platform_ = FakePlatform::kept();
  Library& library = keptLibrary(platform_.seams());
  std::vector<std::string> attempts_;
};

using Scopes = std::vector<std::string>;

TEST_F(RetryTimerTest, NothingTicksBeforeTheFirstIdentity) {
  advance(600);
  EXPECT_EQ(attempts_, Scopes{});
}

TEST_F(RetryTimerTest, FirstIdentityBringsTheFirstTickAtOnce) {
  signIn("u1");
  run();
  EXPECT_EQ(attempts_, Scopes{"scope of u1"});
}

TEST_F(RetryTimerTest, HandlerRunsOnTheGlobalQueue) {
  signIn("u1");
  EXPECT_EQ(platform_.dispatch.pendingCount("global"), 1U);
  EXPECT_EQ(attempts_, Scopes{});
}

TEST_F(RetryTimerTest, TicksComeEverySixtySeconds) {
  signIn("u1");
  run();
  advance(59.5);
  EXPECT_EQ(attempts_.size(), 1U);
  advance(0.5);
  EXPECT_EQ(attempts_.size(), 2U);
  advance(59.5);
  EXPECT_EQ(attempts_.size(), 2U);
  advance(0.5);
  EXPECT_EQ(attempts_.size(), 3U);
}

TEST_F(RetryTimerTest, SecondStartNeitherReschedulesNorTicks) {
  signIn("u1");
  run();
  advance(30);
  library.retryTimer.fireIfNeed();
  library.retryTimer.fireIfNeed();
  run();
  EXPECT_EQ(attempts_.size(), 1U);
  advance(30);
  EXPECT_EQ(attempts_.size(), 2U);
  advance(30);
  EXPECT_EQ(attempts_.size(), 2U);
}

TEST_F(RetryTimerTest, NextTickServesTheIdentityAppliedLast) {
  signIn("u1");
  run();
  advance(30);
  signIn("u2");
  run();
  EXPECT_EQ(attempts_, Scopes{"scope of u1"});
  advance(30);
  EXPECT_EQ(attempts_, (Scopes{"scope of u1", "scope of u2"}));
}

TEST_F(RetryTimerTest, TickUnderWayServesTheIdentityAppliedBeforeItRuns) {
  signIn("u1");
  signIn("u2");
  run();
  EXPECT_EQ(attempts_, Scopes{"scope of u2"});
}

TEST_F(RetryTimerTest, IncompleteIdentityKeepsThePreviousUsersTasksRetried) {
  signIn("u1");
  run();
  platform_.mediator.signOut();
  library.configure.userDidChange();
  advance(60);
  EXPECT_EQ(attempts_, (Scopes{"scope of u1", "scope of u1"}));
}

TEST_F(RetryTimerTest, TickWithoutASchedulerIsSkipped) {
  library.retryTimer.fireIfNeed();
  run();
  EXPECT_EQ(attempts_, Scopes{});
  signIn("u1");
  run();
  EXPECT_EQ(attempts_, Scopes{});
  advance(60);
  EXPECT_EQ(attempts_, Scopes{"scope of u1"});
}

}  // namespace
}  // namespace qx
