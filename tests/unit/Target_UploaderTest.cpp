#include "Classes/Target_Uploader.h"

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "unit/Target_UploaderFixture.h"

namespace qx {
namespace {

// ---- The target

TEST_F(TargetUploaderTest, KnowsTheSevenActionsAndNoOther) {
  Target_Uploader target(library);
  for (const char* action :
       {"Action_SetUp:", "Action_SetMaxBackgroundConcurrent:", "Action_RegisterBackground:",
        "Action_Upload:", "Action_BackgroundUpload:", "Action_BackgroundUploadImage:",
        "Action_Download:"}) {
    EXPECT_TRUE(target.performAction(action, {})) << action;
  }
  for (const char* action : {"", "Action_SetUp", "Action_Setup:", "Upload:", "Action_Delete:"}) {
    EXPECT_FALSE(target.performAction(action, {})) << action;
  }
}

TEST_F(TargetUploaderTest, IsFoundByItsName) {
  perform("Action_SetMaxBackgroundConcurrent:", {{"count", 3}});
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, 3);
  EXPECT_TRUE(platform.mediator.unknownActions().empty());
}

TEST_F(TargetUploaderTest, MissingParametersAreNotLoggedInProduction) {
  platform.mediator.setProduction(true);
  perform("Action_SetUp:", {});
  perform("Action_Upload:", {});
  perform("Action_Download:", {});
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, MissingParametersAreLoggedUpToTheThresholdOfFive) {
  platform.logger.setThreshold(6);
  perform("Action_SetUp:", {});
  EXPECT_TRUE(platform.logger.records().empty());
  platform.logger.setThreshold(5);
  perform("Action_SetUp:", {});
  EXPECT_EQ(platform.logger.messages(), std::vector<std::string>{"miss needServerResize"});
}

// ---- Action_SetUp

TEST_F(TargetUploaderTest, SetUpAppliesIdentityObserverAndItemCallback) {
  perform("Action_SetUp:", {{"needServerResize", true}});
  AWSConfigure& configure = library.configure;
  EXPECT_TRUE(configure.needServerResize);
  ASSERT_TRUE(configure.session.load()->configParameters);
  EXPECT_EQ(configure.session.load()->configParameters->userId, "123456");
  EXPECT_NE(configure.scheduler.load(), nullptr);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(configure.backgroundUploadItemCallback.load());
  EXPECT_TRUE(platform.messageClients.requests(kGetUploadConfig).empty());
}

TEST_F(TargetUploaderTest, SetUpAppliesTheIdentityBetweenTheSwitchesAndTheObserver) {
  int asked = 0;
  platform.mediator.answer("Account_GetUserId", [this, &asked](const std::vector<Value>&) {
    ++asked;
    EXPECT_TRUE(library.configure.needServerResize);
    EXPECT_TRUE(library.configure.resumeStoredTasks);
    EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 0U);
    EXPECT_FALSE(library.configure.backgroundUploadItemCallback.load());
    return Value("123456");
  });
  perform("Action_SetUp:", {{"needServerResize", true}, {"resumeStoredTasks", true}});
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
}

TEST_F(TargetUploaderTest, SetUpWithFalseDiffersInTheSwitchAlone) {
  library.configure.needServerResize = true;
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_FALSE(library.configure.needServerResize);
  EXPECT_TRUE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(library.configure.backgroundUploadItemCallback.load());
}

class NoBoolean : public TargetUploaderTest, public testing::WithParamInterface<Dictionary> {};

TEST_P(NoBoolean, SetsNothingUpAndIsLogged) {
  bool earlierCalled = false;
  library.configure.backgroundUploadItemCallback.store(
      [&earlierCalled](const auto&, const auto&, const auto&, const auto&) {
        earlierCalled = true;
      });
  library.configure.needServerResize = true;
  perform("Action_SetUp:", GetParam());
  expectOnlyLog("miss needServerResize", "Action_SetUp(_:)");
  EXPECT_TRUE(library.configure.needServerResize);
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 0U);
  library.configure.backgroundUploadItemCallback.load()("", std::nullopt, {}, std::nullopt);
  EXPECT_TRUE(earlierCalled);
}

INSTANTIATE_TEST_SUITE_P(Parameters, NoBoolean,
                         testing::Values(Dictionary{}, Dictionary{{"needServerResize", Value()}},
                                         Dictionary{{"needServerResize", 1}},
                                         Dictionary{{"needServerResize", "true"}},
                                         Dictionary{{"needserverresize", true}}));

TEST_F(TargetUploaderTest, UserChangeAppliesTheNewIdentity) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  platform.mediator.signIn("other", "token2", "https://backend.test");
  platform.notifications.post(kUserChangedNotification);
  EXPECT_EQ(library.configure.session.load()->configParameters->userId, "other");
}

TEST_F(TargetUploaderTest, SecondSetUpRegistersASecondObserver) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_SetUp:", {{"needServerResize", false}});
  const auto asked = platform.mediator.performed("Account_GetUserId").size();
  platform.notifications.post(kUserChangedNotification);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 2U);
  EXPECT_EQ(platform.mediator.performed("Account_GetUserId").size(), asked + 2);
}

TEST_F(TargetUploaderTest, SetUpWithoutIdentityStillObservesAndRoutes) {
  platform.mediator.signOut();
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(library.configure.backgroundUploadItemCallback.load());
}

TEST_F(TargetUploaderTest, BackgroundSuccessIsReportedToTheBackendAndAFailureIsNot) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  const auto callback = library.configure.backgroundUploadItemCallback.load();
  callback("avatar", "https://cdn.test/a.jpg", {{"uuid", "77"}}, Error{"AWSUploaderError", 3, ""});
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
  callback("avatar", std::nullopt, {{"uuid", "77"}}, std::nullopt);
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
  callback("avatar", "https://cdn.test/a.jpg", {{"uuid", "77"}}, std::nullopt);
  EXPECT_EQ(platform.messageClients.requests(kUpdateUrl).size(), 1U);
}

TEST_F(TargetUploaderTest, SetUpReplacesAnEarlierItemCallback) {
  bool earlierCalled = false;
  library.configure.backgroundUploadItemCallback.store(
      [&earlierCalled](const auto&, const auto&, const auto&, const auto&) {
        earlierCalled = true;
      });
  perform("Action_SetUp:", {{"needServerResize", false}});
  library.configure.backgroundUploadItemCallback.load()("", std::nullopt, {}, std::nullopt);
  EXPECT_FALSE(earlierCalled);
}

/// A data file that no log entry names. A storage that resumes moves it aside when it opens, which
/// is when the identity is applied.
constexpr const char* kOrphan = "/documents/aws-0011/123456/orphan.jpg";

TEST_F(TargetUploaderTest, SetUpResumesStoredTasksOfTheIdentityItApplies) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", true}});
  EXPECT_FALSE(platform.files.text(kOrphan));
}

class NoResume : public TargetUploaderTest, public testing::WithParamInterface<Value> {};

TEST_P(NoResume, LeavesTheFilesOfEarlierRunsAlone) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", GetParam()}});
  EXPECT_EQ(platform.files.text(kOrphan), "bytes");
  EXPECT_TRUE(platform.logger.records().empty());
}

INSTANTIATE_TEST_SUITE_P(Values, NoResume,
                         testing::Values(Value(), Value(false), Value(1), Value("true")));

TEST_F(TargetUploaderTest, SetUpWithoutTheResumeKeyResumesNothing) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_EQ(platform.files.text(kOrphan), "bytes");
}

// ---- Action_SetMaxBackgroundConcurrent

class Concurrent : public TargetUploaderTest, public testing::WithParamInterface<std::int64_t> {};

TEST_P(Concurrent, CountIsStoredUnchanged) {
  perform("Action_SetMaxBackgroundConcurrent:", {{"count", GetParam()}});
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Counts, Concurrent,
                         testing::Values(1, 0, -5, std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min()));

TEST_F(TargetUploaderTest, CountOfAnotherTypeChangesNothingSilently) {
  for (const Dictionary& parameters :
       {Dictionary{}, Dictionary{{"count", "3"}}, Dictionary{{"count", 3.0}},
        Dictionary{{"count", true}},
        Dictionary{{"count", std::numeric_limits<std::uint64_t>::max()}}}) {
    perform("Action_SetMaxBackgroundConcurrent:", parameters);
  }
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, 6);
  EXPECT_TRUE(platform.logger.records().empty());
}

// ---- Action_RegisterBackground

class RegisterBackground : public TargetUploaderTest {
 protected:
  struct Called {
    std::string scope;
    std::optional<std::string> url;
    std::map<std::string, std::string> extra;
    std::optional<Error> error;
  };
  Value recorder(std::vector<Called>& into) {
    return Value::callback<HostBackgroundCallback>(
        [&into](std::string scope, std::optional<std::string> url,
                std::map<std::string, std::string> extra, std::optional<Error> error) {
          into.push_back({scope, url, extra, error});
        });
  }
  std::vector<Called> called;
};

TEST_F(RegisterBackground, HostReceivesExtraValuesAsTexts) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  library.configure.backgroundUploadCallback.load()(
      "avatar", "https://cdn.test/a.jpg",
      {{"i", std::int64_t{5}}, {"s", "a"}, {"u", std::uint64_t{18446744073709551615U}}, {"d", 0.1}},
      std::nullopt);
  ASSERT_EQ(called.size(), 1U);
  EXPECT_EQ(called[0].scope, "avatar");
  EXPECT_EQ(called[0].url, "https://cdn.test/a.jpg");
  EXPECT_EQ(called[0].extra,
            (std::map<std::string, std::string>{
                {"i", "5"}, {"s", "a"}, {"u", "18446744073709551615"}, {"d", "0.1"}}));
  EXPECT_FALSE(called[0].error);
}

TEST_F(RegisterBackground, HostReceivesFailuresUnchanged) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  const Error error{"AWSUploaderError", 3, "413"};
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, error);
  ASSERT_EQ(called.size(), 1U);
  EXPECT_FALSE(called[0].url);
  EXPECT_TRUE(called[0].extra.empty());
  EXPECT_EQ(called[0].error, error);
}

TEST_F(RegisterBackground, LaterCallbackReplacesTheEarlier) {
  std::vector<Called> later;
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  perform("Action_RegisterBackground:", {{"callback", recorder(later)}});
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, std::nullopt);
  EXPECT_TRUE(called.empty());
  EXPECT_EQ(later.size(), 1U);
}

TEST_F(RegisterBackground, UnusableCallbackLeavesTheEarlierSilently) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  perform("Action_RegisterBackground:", {});
  perform("Action_RegisterBackground:", {{"callback", "text"}});
  perform("Action_RegisterBackground:", {{"callback", complete()}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(nullptr)}});
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, std::nullopt);
  EXPECT_EQ(called.size(), 1U);
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(RegisterBackground, NeedsNoSetUp) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_FALSE(library.configure.backgroundUploadItemCallback.load());
}

}  // namespace
}  // namespace qx
