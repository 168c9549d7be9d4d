#include "Classes/AWSConfigure.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/TaskScheduler.h"
#include "unit/AWSConfigureFixture.h"

namespace qx {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

// ---- full(configParameters:)

TEST_F(AWSConfigureTest, NothingIsConfiguredAtFirst) {
  EXPECT_EQ(configure().maxBackgroundConcurrentCount, 6);
  EXPECT_FALSE(configure().configured);
  EXPECT_FALSE(configure().needServerResize);
  EXPECT_EQ(configure().scheduler.load(), nullptr);
  EXPECT_EQ(configure().session.load()->networkingManager, nullptr);
  EXPECT_EQ(configure().session.load()->configParameters, std::nullopt);
  EXPECT_EQ(configure().session.load()->configUUID, std::nullopt);
  EXPECT_FALSE(configure().backgroundUploadCallback.load());
  EXPECT_FALSE(configure().backgroundUploadItemCallback.load());
}

TEST_F(AWSConfigureTest, IdentityIsAppliedWhenFullReturns) {
  configure().full(identity("u1"));
  EXPECT_EQ(configure().session.load()->configParameters, identity("u1"));
  EXPECT_NE(configure().scheduler.load(), nullptr);
  EXPECT_NE(configure().session.load()->networkingManager, nullptr);
  EXPECT_EQ(runsOn("com.aws.change.config"), 1U);
}

// Otherwise a request that finds the identity in force would go on without its scheduler or its
// client.
TEST_F(AWSConfigureTest, IdentityIsInForceOnlyWhenAllOfItIsApplied) {
  int asked = 0;
  // The host is asked this for the record "host error", in the middle of the change.
  platform_.mediator.answer("QXConfig_currentEnvironmentIsProduction",
                            [&](const std::vector<Value>&) {
                              ++asked;
                              EXPECT_NE(configure().scheduler.load(), nullptr);
                              EXPECT_EQ(configure().session.load()->configParameters, std::nullopt);
                              return Value(false);
                            });
  configure().full({"u1", "t1", std::nullopt});
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(configure().session.load()->configParameters,
            (ConfigParameters{"u1", "t1", std::nullopt}));
}

TEST_F(AWSConfigureTest, SchedulerIsTheUsersOwn) {
  configure().full(identity("u1"));
  EXPECT_EQ(platform_.files.kind("/documents/aws-0011/u1"), PathKind::directory);
}

TEST_F(AWSConfigureTest, MessageClientCarriesTheTwoHeadersAndSigns) {
  configure().full(identity("u1", "t1"));
  const auto managers = platform_.messageClients.managers();
  ASSERT_THAT(managers, SizeIs(1));
  EXPECT_EQ(managers[0].baseURL, "https://backend.test");
  EXPECT_EQ(managers[0].headers, (HTTPHeaders{{"USER-ID", "u1"}, {"ACCESS-TOKEN", "t1"}}));
  EXPECT_EQ(managers[0].timeoutForRequest, std::nullopt);
  EXPECT_TRUE(managers[0].addSignature);
}

TEST_F(AWSConfigureTest, EqualIdentityChangesNothing) {
  configure().full(identity("u1"));
  run();
  const auto scheduler = configure().scheduler.load();
  const auto client = configure().session.load()->networkingManager;
  configure().full(identity("u1"));
  EXPECT_EQ(configure().scheduler.load(), scheduler);
  EXPECT_EQ(configure().session.load()->networkingManager, client);
  EXPECT_THAT(platform_.messageClients.managers(), SizeIs(1));
  EXPECT_EQ(runsOn("com.aws.change.config"), 1U);
  EXPECT_EQ(platform_.dispatch.pendingCount(), 0U);
}

TEST_F(AWSConfigureTest, AnyChangedPartMakesANewSchedulerAndClient) {
  configure().full(identity("u1"));
  const auto first = configure().scheduler.load();
  configure().full(identity("u1", "t2"));
  const auto second = configure().scheduler.load();
  configure().full({"u1", "t2", Url::parse("https://other.test")});
  const auto third = configure().scheduler.load();
  configure().full({"u2", "t2", Url::parse("https://other.test")});
  EXPECT_NE(first, second);
  EXPECT_NE(second, third);
  EXPECT_NE(third, configure().scheduler.load());
  const auto managers = platform_.messageClients.managers();
  ASSERT_THAT(managers, SizeIs(4));
  EXPECT_EQ(managers[1].headers[1].second, "t2");
  EXPECT_EQ(managers[2].baseURL, "https://other.test");
  EXPECT_EQ(managers[3].headers[0].second, "u2");
}

TEST_F(AWSConfigureTest, IdentityWithoutAnAddressKeepsTheOldClientAndLogs) {
  configure().full(identity("u1"));
  const auto client = configure().session.load()->networkingManager;
  const auto scheduler = configure().scheduler.load();
  configure().full({"u2", "t2", std::nullopt});
  EXPECT_EQ(configure().session.load()->networkingManager, client);
  EXPECT_NE(configure().scheduler.load(), scheduler);
  EXPECT_EQ(configure().session.load()->configParameters,
            (ConfigParameters{"u2", "t2", std::nullopt}));
  const auto records = platform_.logger.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].level, 5);
  EXPECT_EQ(records[0].message, "host error");
  EXPECT_EQ(records[0].module, "QXAwsUploader");
  EXPECT_EQ(records[0].source, "QXAwsUploader/AWSConfigure");
  EXPECT_EQ(records[0].function, "full(configParameters:)");
  EXPECT_GT(records[0].line, 0);
}

TEST_F(AWSConfigureTest, FirstIdentityWithoutAnAddressLeavesNoClient) {
  configure().full({"u1", "t1", std::nullopt});
  EXPECT_EQ(configure().session.load()->networkingManager, nullptr);
  EXPECT_NE(configure().scheduler.load(), nullptr);
}

TEST_F(AWSConfigureTest, IdentityNeitherFetchesNorDiscardsCredentials) {
  get("avatar");
  const auto uuid = configure().session.load()->configUUID;
  configure().full(identity("u2"));
  run();
  EXPECT_TRUE(configure().configured);
  EXPECT_EQ(configure().session.load()->configUUID, uuid);
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, MapOfThePreviousUserServesAfterAUserChangeUntilItExpires) {
  get("avatar");
  platform_.mediator.signIn("u2", "t2", "https://backend.test");
  configure().userDidChange();
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 1U);
  platform_.clock.set(kLater);
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 2U);
}

// ---- retryFire(), userDidChange()

TEST_F(AWSConfigureTest, RetryFireAppliesTheHostsIdentityWithoutAFetch) {
  configure().retryFire();
  run();
  EXPECT_EQ(configure().session.load()->configParameters, identity("u1"));
  EXPECT_EQ(fetches(), 0U);
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
  EXPECT_THAT(platform_.mediator.trackedEvents(), IsEmpty());
}

TEST_F(AWSConfigureTest, UserChangeAppliesTheNewIdentity) {
  configure().retryFire();
  const auto scheduler = configure().scheduler.load();
  platform_.mediator.signIn("u2", "t2", "https://backend.test");
  configure().userDidChange();
  EXPECT_EQ(configure().session.load()->configParameters, identity("u2", "t2"));
  EXPECT_NE(configure().scheduler.load(), scheduler);
}

TEST_F(AWSConfigureTest, IncompleteIdentityIsLoggedAndTrackedAndChangesNothing) {
  configure().retryFire();
  const auto scheduler = configure().scheduler.load();
  const auto client = configure().session.load()->networkingManager;
  const std::vector<std::pair<std::string, Value>> rows = {
      {"Account_GetUserId", Value()},
      {"Account_GetAccessToken", ""},
      {"QXConfig_getServerAddress", "not a url"},
  };
  const Dictionary event = {{"message", "[Error] retry fire miss userId or accessToken"},
                            {"status", "error"},
                            {"type", "config"}};
  std::size_t reports = 0;
  for (const auto& [selector, answer] : rows) {
    platform_.mediator.signIn("u2", "t2", "https://backend.test");
    platform_.mediator.answer(selector, answer);
    configure().userDidChange();
    ++reports;
    const auto records = platform_.logger.records();
    ASSERT_THAT(records, SizeIs(reports)) << selector;
    EXPECT_EQ(records.back().level, 5);
    EXPECT_EQ(records.back().message, "miss userId or accessToken");
    EXPECT_EQ(records.back().source, "QXAwsUploader/AWSConfigure");
    EXPECT_EQ(records.back().function, "retryFire()");
    const auto events = platform_.mediator.trackedEvents();
    ASSERT_THAT(events, SizeIs(reports)) << selector;
    EXPECT_EQ(events.back(), event);
  }
  EXPECT_EQ(configure().session.load()->configParameters, identity("u1"));
  EXPECT_EQ(configure().scheduler.load(), scheduler);
  EXPECT_EQ(configure().session.load()->networkingManager, client);
}

TEST_F(AWSConfigureTest, ProductionTracksAnIncompleteIdentityWithoutALogRecord) {
  platform_.mediator.setProduction(true);
  platform_.mediator.signOut();
  configure().retryFire();
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
  EXPECT_THAT(platform_.mediator.trackedEvents(), SizeIs(1));
}

}  // namespace
}  // namespace qx
