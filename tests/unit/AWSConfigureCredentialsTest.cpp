#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/TaskExecutor.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "unit/AWSConfigureFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- getConfig(scope, skipCheckExpiration, callback)

TEST_F(AWSConfigureTest, GetConfigReturnsBeforeItAnswers) {
  ask("avatar");
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(platform_.dispatch.pendingCount("com.aws.get.config"), 1U);
}

TEST_F(AWSConfigureTest, AnswerRunsOnTheGetConfigQueue) {
  EXPECT_EQ(get("avatar").queue, "com.aws.get.config");
  platform_.mediator.signOut();
  EXPECT_EQ(get("avatar").queue, "com.aws.get.config");
}

TEST_F(AWSConfigureTest, FirstRequestAfterSetUpFetchesOnceAndAnswersFromTheNewMap) {
  configure().retryFire();
  const Answer answer = get("avatar");
  EXPECT_TRUE(answer.status.succeeded());
  ASSERT_TRUE(answer.model);
  EXPECT_EQ(answer.model->bucket, "b1");
  EXPECT_EQ(answer.model->expiration, Date{kLater});
  EXPECT_EQ(fetches(), 1U);
  EXPECT_TRUE(configure().configured);
  EXPECT_THAT(platform_.messageClients.managers(), SizeIs(1));
}

TEST_F(AWSConfigureTest, FirstRequestWithoutSetUpAppliesTheIdentityAndFetches) {
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(configure().session.load()->configParameters, identity("u1"));
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, MissingIdentityFailsWithoutAFetch) {
  const std::vector<std::pair<std::string, Value>> rows = {
      {"Account_GetUserId", Value()},         {"Account_GetUserId", ""},
      {"Account_GetAccessToken", Value()},    {"Account_GetAccessToken", ""},
      {"QXConfig_getServerAddress", Value()}, {"QXConfig_getServerAddress", "not a url"},
  };
  for (const auto& [selector, answer] : rows) {
    platform_.mediator.signIn("u1", "t1", "https://backend.test");
    platform_.mediator.answer(selector, answer);
    const Answer got = get("avatar");
    EXPECT_EQ(got.status, kMissing) << selector;
    EXPECT_FALSE(got.model);
  }
  EXPECT_EQ(fetches(), 0U);
  EXPECT_EQ(configure().session.load()->configParameters, std::nullopt);
}

TEST_F(AWSConfigureTest, MissingIdentityFailsEvenWithAUsableMap) {
  get("avatar");
  platform_.mediator.signOut();
  EXPECT_EQ(get("avatar").status, kMissing);
  EXPECT_EQ(get("avatar", true).status, kMissing);
}

TEST_F(AWSConfigureTest, ConfiguredScopeIsAnsweredWithoutAnotherFetch) {
  get("avatar");
  EXPECT_EQ(get("avatar").model->bucket, "b1");
  EXPECT_EQ(get("item").model->bucket, "b2");
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, BurstNeedsOneFetch) {
  for (int i = 0; i < 50; ++i) ask(i % 2 == 0 ? "avatar" : "item");
  run();
  EXPECT_EQ(fetches(), 1U);
  EXPECT_THAT(answers_, SizeIs(50));
  for (const Answer& answer : answers_) {
    ASSERT_TRUE(answer.status.succeeded());
    EXPECT_EQ(answer.model->bucket, answer.scope == "avatar" ? "b1" : "b2");
  }
}

TEST_F(AWSConfigureTest, RequestThatFetchedIsAnsweredBehindThoseThatWaited) {
  ask("avatar");
  ask("item");
  run();
  EXPECT_THAT(answeredScopes(), ElementsAre("item", "avatar"));
}

TEST_F(AWSConfigureTest, LaterRequestsWaitWhileAFetchIsOut) {
  platform_.messageClients.hold(kApi);
  std::vector<std::string> answeredMeanwhile = {"not looked"};
  std::size_t fetchesMeanwhile = 0;
  platform_.dispatch.onIdle = [&] {
    answeredMeanwhile = answeredScopes();
    fetchesMeanwhile = fetches();
    platform_.messageClients.release(kApi);
  };
  ask("avatar");
  ask("item");
  run();
  EXPECT_THAT(answeredMeanwhile, IsEmpty());
  EXPECT_EQ(fetchesMeanwhile, 1U);
  EXPECT_THAT(answers_, SizeIs(2));
}

TEST_F(AWSConfigureTest, ScopeThatTheMapLacksFailsWithItsNameAfterTheColon) {
  const Answer answer = get("nowhere");
  EXPECT_EQ(answer.status, AWSCallbackStatus::failure(AWSErrorCode::keyNotMatch,
                                                      "[Error] not found config with key:nowhere"));
  EXPECT_FALSE(answer.model);
  EXPECT_EQ(fetches(), 1U);
  get("nowhere");
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, EmptyMapHasNoScope) {
  backendGives({});
  EXPECT_EQ(get("avatar").status.code(), AWSErrorCode::keyNotMatch);
  EXPECT_TRUE(configure().configured);
}

TEST_F(AWSConfigureTest, CredentialIsGoodUntilJustBeforeItsExpiry) {
  get("avatar");
  platform_.clock.set(kLater - 0.001);
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, CredentialIsExpiredAtTheInstantOfItsExpiry) {
  get("avatar");
  backendGives({{"avatar", record(kLater + 3600, "renewed")}});
  platform_.clock.set(kLater);
  EXPECT_EQ(get("avatar").model->bucket, "renewed");
  EXPECT_EQ(fetches(), 2U);
}

TEST_F(AWSConfigureTest, OnlyTheAskedScopesExpiryCounts) {
  backendGives({{"avatar", record(kLater)}, {"old", record(kNow - 1)}});
  get("avatar");
  get("avatar");
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, SkippingTheCheckHandsOutAnExpiredCredentialWithoutAFetch) {
  get("avatar");
  platform_.clock.set(kLater + 10);
  EXPECT_EQ(get("avatar", true).model->bucket, "b1");
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, SkippingTheCheckStillFetchesWhenNothingIsConfigured) {
  EXPECT_TRUE(get("avatar", true).status.succeeded());
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, FreshCredentialIsHandedOutThoughItCameExpired) {
  backendGives({{"avatar", record(kNow - 3600)}});
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 1U);
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 2U);
}

TEST_F(AWSConfigureTest, RenewedMapReplacesTheOldOneWhole) {
  get("avatar");
  backendGives({{"avatar", record(kLater + 3600)}});
  platform_.clock.set(kLater);
  get("avatar");
  EXPECT_EQ(get("item").status.code(), AWSErrorCode::keyNotMatch);
}

TEST_F(AWSConfigureTest, ChangedIdentityIsAppliedAndFetchedFor) {
  get("avatar");
  platform_.mediator.signIn("u2", "t2", "https://other.test");
  backendGives({{"avatar", record(kLater, "of u2")}});
  EXPECT_EQ(get("avatar", true).model->bucket, "of u2");
  EXPECT_EQ(configure().session.load()->configParameters,
            (ConfigParameters{"u2", "t2", Url::parse("https://other.test")}));
  const auto requests = platform_.messageClients.requests(kApi);
  ASSERT_THAT(requests, SizeIs(2));
  const auto manager = platform_.messageClients.managers().at(requests[1].manager);
  EXPECT_EQ(manager.baseURL, "https://other.test");
  EXPECT_EQ(manager.headers, (HTTPHeaders{{"USER-ID", "u2"}, {"ACCESS-TOKEN", "t2"}}));
}

TEST_F(AWSConfigureTest, IdentityIsReadFromTheHostForEachRequest) {
  ask("avatar");
  ask("avatar");
  platform_.mediator.signOut();
  run();
  ASSERT_THAT(answers_, SizeIs(2));
  EXPECT_EQ(answers_[0].status, kMissing);
  EXPECT_EQ(answers_[1].status, kMissing);
}

TEST_F(AWSConfigureTest, EmptyCallbackIsNotCalled) {
  configure().getConfig("avatar", false, nullptr);
  configure().getConfig("nowhere", false, nullptr);
  run();
  EXPECT_EQ(fetches(), 1U);
}

// ---- fetchServerConfig()

TEST_F(AWSConfigureTest, FetchWithoutASchedulerSucceeds) {
  Session signedIn;
  signedIn.networkingManager =
      platform_.messageClients.make(*Url::parse("https://backend.test"), {}, std::nullopt, true);
  configure().session.store(std::make_shared<const Session>(signedIn));
  EXPECT_TRUE(configure().fetchServerConfig().success);
  EXPECT_TRUE(configure().configured);
  EXPECT_EQ(configure().scheduler.load(), nullptr);
}

TEST_F(AWSConfigureTest, FetchIsOneGetWithThirtySecondsSentFromTheFetchQueue) {
  get("avatar");
  const auto requests = platform_.messageClients.requests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].api, kApi);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_THAT(requests[0].parameters, IsEmpty());
  EXPECT_THAT(requests[0].mimeBodies, IsEmpty());
  EXPECT_EQ(requests[0].headers, std::nullopt);
  EXPECT_EQ(requests[0].timeoutSeconds, 30);
  EXPECT_FALSE(requests[0].hasProgress);
  EXPECT_EQ(runsOn("com.aws.fetch"), 1U);
}

TEST_F(AWSConfigureTest, FetchWithoutAMessageClientReportsSuccessHavingSentNothing) {
  configure().configured = true;
  const auto result = configure().fetchServerConfig();
  EXPECT_TRUE(result.success);
  EXPECT_EQ(result.message, std::nullopt);
  EXPECT_THAT(platform_.messageClients.requests(), IsEmpty());
  EXPECT_FALSE(configure().configured);
}

TEST_F(AWSConfigureTest, NothingCountsAsConfiguredWhileAFetchIsOut) {
  get("avatar");
  platform_.messageClients.hold(kApi);
  bool configuredMeanwhile = true;
  platform_.dispatch.onIdle = [&] {
    configuredMeanwhile = configure().configured;
    platform_.messageClients.release(kApi);
  };
  platform_.clock.set(kLater);
  get("avatar");
  EXPECT_FALSE(configuredMeanwhile);
  EXPECT_TRUE(configure().configured);
}

TEST_F(AWSConfigureTest, FailedFetchIsAServerErrorWithItsDescription) {
  platform_.messageClients.fail(kApi, {"QXNetworking", 503, "HTTP 503"});
  const Answer answer = get("avatar");
  EXPECT_EQ(answer.status, serverError("HTTP 503"));
  EXPECT_FALSE(answer.model);
  EXPECT_FALSE(configure().configured);
}

TEST_F(AWSConfigureTest, FailureWithoutADescriptionHasAnEmptyMessage) {
  platform_.messageClients.fail(kApi, {"Transport", -1, ""});
  EXPECT_EQ(get("avatar").status, serverError(""));
}

TEST_F(AWSConfigureTest, AnswerWithoutAValueIsAResponseError) {
  platform_.messageClients.respond(kApi, {std::nullopt, nullptr});
  EXPECT_EQ(get("avatar").status, serverError("response error"));
}

TEST_F(AWSConfigureTest, AnswerOfAnotherKindIsAResponseError) {
  platform_.messageClients.respond(kApi, {std::nullopt, std::make_shared<const APIResponse>()});
  EXPECT_EQ(get("avatar").status, serverError("response error"));
}

TEST_F(AWSConfigureTest, UndecodableRecordFailsTheFetch) {
  Dictionary bad = record(kLater);
  bad.erase("region");
  backendGives({{"avatar", record(kLater)}, {"item", bad}});
  const Answer answer = get("avatar");
  EXPECT_EQ(answer.status.code(), AWSErrorCode::serverError);
  EXPECT_THAT(answer.status.message(), testing::HasSubstr("\"region\""));
  EXPECT_THAT(registeredKeys(), IsEmpty());
}

TEST_F(AWSConfigureTest, FailureIsNeverCached) {
  platform_.messageClients.failOnce(kApi, {"QXNetworking", 503, "HTTP 503"});
  platform_.messageClients.failOnce(kApi, {"QXNetworking", 500, "HTTP 500"});
  EXPECT_EQ(get("avatar").status, serverError("HTTP 503"));
  EXPECT_EQ(get("avatar").status, serverError("HTTP 500"));
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_EQ(fetches(), 3U);
}

TEST_F(AWSConfigureTest, NoTimerRetriesAFailedFetch) {
  platform_.messageClients.fail(kApi, {"QXNetworking", 503, "HTTP 503"});
  get("avatar");
  platform_.clock.advance(600);
  run();
  EXPECT_EQ(fetches(), 1U);
}

TEST_F(AWSConfigureTest, FailedFetchKeepsTheRegistrationsOfTheOneBefore) {
  get("avatar");
  const auto uuid = configure().session.load()->configUUID;
  platform_.messageClients.fail(kApi, {"QXNetworking", 503, "HTTP 503"});
  platform_.clock.set(kLater);
  EXPECT_EQ(get("avatar").status, serverError("HTTP 503"));
  EXPECT_EQ(configure().session.load()->configUUID, uuid);
  EXPECT_NE(platform_.objectStore.S3TransferUtilityForKey("avatar" + *uuid), nullptr);
  // The expired credential is not given again, even to a request that would accept it.
  EXPECT_EQ(get("avatar", true).status, serverError("HTTP 503"));
}

TEST_F(AWSConfigureTest, AnswerFromAnotherThreadsQueueEndsTheWait) {
  platform_.messageClients.answerOn(platform_.dispatch.globalQueue());
  EXPECT_TRUE(get("avatar").status.succeeded());
}

TEST_F(AWSConfigureTest, SuccessfulFetchStartsTheUploadsThatWaited) {
  configure().retryFire();
  library.taskQueue->add(std::make_shared<TaskExecutor>(
      library.platform, library.configure, library.events, UploadKind::background,
      std::make_shared<DataTask>("a.jpg", "avatar", Data("bytes"), AWSParameterMap{})));
  run();
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
  get("item");
  EXPECT_EQ(library.taskQueue->waitingCount(), 0U);
  EXPECT_THAT(platform_.objectStore.uploads(), SizeIs(1));
}

TEST_F(AWSConfigureTest, FailedFetchStartsNoUploads) {
  configure().retryFire();
  library.taskQueue->add(std::make_shared<TaskExecutor>(
      library.platform, library.configure, library.events, UploadKind::background,
      std::make_shared<DataTask>("a.jpg", "avatar", Data("bytes"), AWSParameterMap{})));
  platform_.messageClients.fail(kApi, {"QXNetworking", 503, "HTTP 503"});
  get("item");
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

}  // namespace
}  // namespace qx
