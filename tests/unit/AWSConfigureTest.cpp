#include "Classes/AWSConfigure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Classes/TaskExecutor.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"
#include "unit/ThreadDispatch.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kApi = "v3/storage/get_upload_config";
constexpr const char* kItemApi = "v3/item/update_item_original_image_url";
constexpr const char* kDetItemApi = "v3/item/update_item_original_det_image_url";
constexpr double kNow = 1'700'000'000.25;
constexpr double kLater = kNow + 3600;

const AWSCallbackStatus kMissing =
    AWSCallbackStatus::failure(AWSErrorCode::missParamters, "[Error] miss userId or accessToken");

AWSCallbackStatus serverError(std::string message) {
  return AWSCallbackStatus::failure(AWSErrorCode::serverError, std::move(message));
}

ConfigParameters identity(const std::string& user, const std::string& token = "t1") {
  return {user, token, Url::parse("https://backend.test")};
}

/// A credential record whose bucket tells it apart.
Dictionary record(double expiration, const std::string& bucket = "b1",
                  const std::string& region = "eu-north-1") {
  return {{"access_key_id", "AK"},     {"access_key_secret", "SK"},
          {"security_token", "ST"},    {"expiration", expiration},
          {"bucket", bucket},          {"region", region},
          {"authorized_path", "u/1/"}, {"download_url_prefix", "https://cdn.test"}};
}

struct Answer {
  std::string scope;
  std::optional<UploadTokenModel> model;
  AWSCallbackStatus status = AWSCallbackStatus::success();
  std::string queue;
};

class AWSConfigureTest : public testing::Test {
 protected:
  AWSConfigureTest() {
    platform_.clock.set(kNow);
    platform_.mediator.signIn("u1", "t1", "https://backend.test");
    backendGives({{"avatar", record(kLater)}, {"item", record(kLater, "b2")}});
  }

  AWSConfigure& configure() { return library.configure; }

  void backendGives(Dictionary records) {
    platform_.messageClients.answer(kApi, Dictionary{{"upload_token_map", std::move(records)}});
  }
  void ask(const std::string& scope, bool skipCheckExpiration = false) {
    configure().getConfig(
        scope, skipCheckExpiration,
        [this, scope](const std::optional<UploadTokenModel>& model,
                      const AWSCallbackStatus& status) {
          answers_.push_back({scope, model, status, platform_.dispatch.currentQueueLabel()});
        });
  }
  void run() { platform_.dispatch.runUntilIdle(); }
  /// Asks, runs and yields the one answer.
  Answer get(const std::string& scope, bool skipCheckExpiration = false) {
    answers_.clear();
    ask(scope, skipCheckExpiration);
    run();
    EXPECT_THAT(answers_, SizeIs(1));
    return answers_.empty() ? Answer() : answers_.front();
  }
  std::size_t fetches() { return platform_.messageClients.requests(kApi).size(); }
  std::size_t runsOn(const std::string& queue) {
    return static_cast<std::size_t>(std::count(platform_.dispatch.history().begin(),
                                               platform_.dispatch.history().end(), queue));
  }
  std::vector<std::string> registeredKeys() {
    std::vector<std::string> keys;
    for (const auto& each : platform_.objectStore.registrations()) keys.push_back(each.key);
    return keys;
  }
  std::vector<std::string> answeredScopes() {
    std::vector<std::string> scopes;
    for (const Answer& answer : answers_) scopes.push_back(answer.scope);
    return scopes;
  }

  FakePlatform& platform_ = FakePlatform::kept();
  Library& library = keptLibrary(platform_.seams());
  std::vector<Answer> answers_;
};

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

// Who found the identity in force would otherwise go on without its scheduler or its client.
TEST_F(AWSConfigureTest, IdentityIsInForceOnlyWhenAllOfItIsApplied) {
  int asked = 0;
  // Asked for the record "host error", half-way.
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
  // The expired credential is not handed out again, even to one who would take it.
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

// ---- generateAWSConfiguration(key, model)

TEST_F(AWSConfigureTest, EachScopeIsRegisteredUnderItsNameAndTheFetchsUuid) {
  get("avatar");
  const std::string uuid = configure().session.load()->configUUID.value();
  EXPECT_EQ(uuid, "00000000-0000-4000-8000-000000000001");
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar" + uuid, "item" + uuid));
}

TEST_F(AWSConfigureTest, RegisteredConfigurationHasTheFixedSettings) {
  get("avatar");
  const auto configuration = platform_.objectStore.registrations().at(0).configuration;
  EXPECT_EQ(configuration.timeoutIntervalForRequest, 30);
  EXPECT_EQ(configuration.timeoutIntervalForResource, 30);
  EXPECT_EQ(configuration.maxRetryCount, 1);
  EXPECT_EQ(configuration.endpoint.urlString, "https://store.example");
  EXPECT_EQ(configuration.region, AWSRegionType{25});
  EXPECT_EQ(configuration.credentials.accessKey, "AK");
  EXPECT_EQ(configuration.credentials.secretKey, "SK");
  EXPECT_EQ(configuration.credentials.sessionToken, "ST");
}

TEST_F(AWSConfigureTest, RegionsDifferByScopeAndTheEndpointDoesNot) {
  backendGives({{"a", record(kLater, "b", "us-east-1")}, {"b", record(kLater, "b", "ap-east-1")}});
  get("a");
  const auto registrations = platform_.objectStore.registrations();
  ASSERT_THAT(registrations, SizeIs(2));
  EXPECT_EQ(registrations[0].configuration.region, AWSRegionType{1});
  EXPECT_EQ(registrations[1].configuration.region, AWSRegionType{26});
  EXPECT_EQ(registrations[0].configuration.endpoint.urlString,
            registrations[1].configuration.endpoint.urlString);
}

TEST_F(AWSConfigureTest, NextFetchRegistersUnderFreshKeysAndForgetsTheEarlierOnes) {
  backendGives({{"avatar", record(kNow)}, {"item", record(kNow)}});
  get("avatar");
  backendGives({{"avatar", record(kNow)}});
  const std::string first = configure().session.load()->configUUID.value();
  get("avatar");
  const std::string second = configure().session.load()->configUUID.value();
  EXPECT_NE(first, second);
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar" + first, "item" + first, "avatar" + second));
  EXPECT_EQ(platform_.objectStore.S3TransferUtilityForKey("avatar" + first), nullptr);
  EXPECT_EQ(platform_.objectStore.S3TransferUtilityForKey("item" + first), nullptr);
  EXPECT_NE(platform_.objectStore.S3TransferUtilityForKey("avatar" + second), nullptr);
}

TEST_F(AWSConfigureTest, WithoutAUuidTheScopeAloneIsTheKey) {
  UploadTokenModel model;
  model.region = "us-east-1";
  configure().generateAWSConfiguration("avatar", model);
  EXPECT_THAT(registeredKeys(), ElementsAre("avatar"));
}

TEST_F(AWSConfigureTest, ScopeWithoutAConfigurationIsTrackedAndTheFetchSucceeds) {
  backendGives({{"avatar", record(kLater)}, {"bad", record(kLater, "b", "moon 1")}});
  EXPECT_TRUE(get("bad").status.succeeded());
  EXPECT_THAT(registeredKeys(),
              ElementsAre("avatar" + configure().session.load()->configUUID.value()));
  EXPECT_EQ(platform_.objectStore.askedRegions().back(), AWSRegionType::unknown);
  const Dictionary expected = {
      {"message", "[Error] AWS-bad config error"}, {"status", "error"}, {"type", "config"}};
  EXPECT_THAT(platform_.mediator.trackedEvents(), ElementsAre(expected));
}

TEST_F(AWSConfigureTest, NothingCountsAsConfiguredUntilEveryScopeIsRegistered) {
  // The scope without a configuration is the first one, so its report comes before the others.
  backendGives({{"a bad one", record(kLater, "b", "moon 1")}, {"avatar", record(kLater)}});
  bool configuredMeanwhile = true;
  std::optional<std::string> uuidMeanwhile;
  platform_.mediator.answer("Tracking_Event:parameters:", [&](const std::vector<Value>&) {
    configuredMeanwhile = configure().configured;
    uuidMeanwhile = configure().session.load()->configUUID;
    return Value();
  });
  EXPECT_TRUE(get("avatar").status.succeeded());
  EXPECT_FALSE(configuredMeanwhile);
  EXPECT_TRUE(configure().configured);
  EXPECT_NE(uuidMeanwhile, std::nullopt);
  EXPECT_EQ(uuidMeanwhile, configure().session.load()->configUUID);
}

TEST_F(AWSConfigureTest, UnknownRegionIsLeftToTheStoreToAccept) {
  backendGives({{"avatar", record(kLater, "b", "moon-1")}});
  get("avatar");
  EXPECT_THAT(registeredKeys(), SizeIs(1));
  EXPECT_THAT(platform_.mediator.trackedEvents(), IsEmpty());
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

// ---- backgroundUploadItem(imageUrl, extra)

class BackgroundUploadItemTest : public AWSConfigureTest {
 protected:
  BackgroundUploadItemTest() {
    configure().full(identity("u1"));
    platform_.messageClients.answer(kItemApi, Dictionary{});
    platform_.messageClients.answer(kDetItemApi, Dictionary{});
    run();
  }
  void update(const AWSParameterMap& extra,
              const std::optional<std::string>& url = "https://cdn.test/a.jpg") {
    configure().backgroundUploadItem(url, extra);
    run();
  }
  std::vector<FakeMessageClients::Request> requests() {
    return platform_.messageClients.requests();
  }
  AWSBasicParameter number(std::int64_t v) { return v; }
};

TEST_F(BackgroundUploadItemTest, AllAttributesGoIntoTheMessageInOrder) {
  update({{"uuid", "77"},
          {"OriginalImageWidthKey", "400"},
          {"OriginalImageHeightKey", "300"},
          {"OriginalImageFileSizeKey", "5000000000"},
          {"OriginalImageSha1Key", "abc"},
          {"OriginalImageFileFormatKey", "jpg"},
          {"scopeOfItsOwn", "ignored"}});
  ASSERT_THAT(requests(), SizeIs(1));
  const auto request = requests()[0];
  EXPECT_EQ(request.api, kItemApi);
  EXPECT_EQ(request.method, "POST");
  const OrderedMembers expected = {{"item_id", 77},
                                   {"original_image_url", "https://cdn.test/a.jpg"},
                                   {"original_image_sha1", "abc"},
                                   {"original_image_height", 300},
                                   {"original_image_width", 400},
                                   {"original_image_file_size", std::int64_t{5'000'000'000}},
                                   {"original_image_file_format", "jpg"}};
  EXPECT_EQ(request.parameters, expected);
  EXPECT_EQ(request.headers, std::nullopt);
  EXPECT_EQ(request.timeoutSeconds, 30);
  EXPECT_FALSE(request.hasProgress);
  EXPECT_THAT(request.mimeBodies, IsEmpty());
}

TEST_F(BackgroundUploadItemTest, OnlyTheItemIdGivesABodyOfTwoMembers) {
  update({{"uuid", number(1)}});
  ASSERT_THAT(requests(), SizeIs(1));
  const OrderedMembers expected = {{"item_id", 1},
                                   {"original_image_url", "https://cdn.test/a.jpg"}};
  EXPECT_EQ(requests()[0].parameters, expected);
}

TEST_F(BackgroundUploadItemTest, ValuesOfOtherKindsAreConverted) {
  update({{"uuid", 77.9},
          {"OriginalImageWidthKey", 400.5},
          {"OriginalImageHeightKey", "tall"},
          {"OriginalImageSha1Key", number(12)},
          {"OriginalImageFileFormatKey", 1.0}});
  ASSERT_THAT(requests(), SizeIs(1));
  const OrderedMembers expected = {{"item_id", 77},
                                   {"original_image_url", "https://cdn.test/a.jpg"},
                                   {"original_image_sha1", "12"},
                                   {"original_image_height", 0},
                                   {"original_image_width", 400},
                                   {"original_image_file_format", "1.0"}};
  EXPECT_EQ(requests()[0].parameters, expected);
}

TEST_F(BackgroundUploadItemTest, TextTrueChoosesTheDetMessage) {
  update({{"uuid", "77"}, {"OriginalImageUseDetUploadKey", "true"}});
  ASSERT_THAT(requests(), SizeIs(1));
  EXPECT_EQ(requests()[0].api, kDetItemApi);
  const OrderedMembers expected = {{"item_id", 77},
                                   {"original_det_image_url", "https://cdn.test/a.jpg"}};
  EXPECT_EQ(requests()[0].parameters, expected);
}

TEST_F(BackgroundUploadItemTest, AnythingElseChoosesThePlainMessage) {
  for (const AWSBasicParameter& other :
       {AWSBasicParameter("True"), AWSBasicParameter("TRUE"), AWSBasicParameter("true "),
        AWSBasicParameter(""), AWSBasicParameter("1"), number(1), AWSBasicParameter(1.0)}) {
    update({{"uuid", "77"}, {"OriginalImageUseDetUploadKey", other}});
    EXPECT_EQ(requests().back().api, kItemApi) << other.toString();
  }
  EXPECT_THAT(requests(), SizeIs(7));
}

TEST_F(BackgroundUploadItemTest, WithoutAUsableItemIdNothingIsSentOrLogged) {
  update({});
  update({{"OriginalImageWidthKey", "400"}});
  for (const char* uuid : {"0", "-5", "abc", "", " 12", "9223372036854775808"}) {
    update({{"uuid", uuid}});
  }
  update({{"uuid", number(0)}});
  update({{"uuid", number(-1)}});
  update({{"uuid", 0.9}});
  EXPECT_THAT(requests(), IsEmpty());
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
}

TEST_F(BackgroundUploadItemTest, WithoutAnImageUrlNothingIsSentOrLogged) {
  update({{"uuid", "77"}}, std::nullopt);
  EXPECT_THAT(requests(), IsEmpty());
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
}

TEST_F(AWSConfigureTest, ItemUpdateWithoutAMessageClientIsDropped) {
  configure().backgroundUploadItem("https://cdn.test/a.jpg", {{"uuid", "77"}});
  run();
  EXPECT_THAT(platform_.messageClients.requests(), IsEmpty());
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
}

TEST_F(BackgroundUploadItemTest, SuccessIsLoggedAsANote) {
  update({{"uuid", "77"}});
  const auto records = platform_.logger.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].level, 2);
  EXPECT_EQ(records[0].message, "Update original image info, Url:https://cdn.test/a.jpg itemId:77");
  EXPECT_EQ(records[0].source, "QXAwsUploader/AWSConfigure");
  EXPECT_EQ(records[0].function, "backgroundUploadItem(imageUrl:extra:)");
}

TEST_F(BackgroundUploadItemTest, FailureIsLoggedAsAnErrorAndNotTriedAgain) {
  platform_.messageClients.fail(kItemApi, {"QXNetworking", 503, "HTTP 503"});
  update({{"uuid", "77"}});
  platform_.clock.advance(600);
  run();
  const auto records = platform_.logger.records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records[0].level, 5);
  EXPECT_EQ(records[0].message,
            "Update original image info failure, error:QXNetworking 503: HTTP 503");
  EXPECT_EQ(records[0].function, "backgroundUploadItem(imageUrl:extra:)");
  EXPECT_THAT(requests(), SizeIs(1));
  EXPECT_THAT(platform_.mediator.trackedEvents(), IsEmpty());
}

TEST_F(BackgroundUploadItemTest, ProductionLogsNeitherOutcome) {
  platform_.mediator.setProduction(true);
  update({{"uuid", "77"}});
  platform_.messageClients.fail(kItemApi, {"QXNetworking", 503, "HTTP 503"});
  update({{"uuid", "77"}});
  EXPECT_THAT(requests(), SizeIs(2));
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
}

TEST_F(BackgroundUploadItemTest, NoteBelowTheLoggersThresholdIsDropped) {
  platform_.logger.setThreshold(3);
  update({{"uuid", "77"}});
  EXPECT_THAT(platform_.logger.records(), IsEmpty());
}

TEST_F(BackgroundUploadItemTest, UpdatesOfSeveralImagesAreIndependent) {
  platform_.messageClients.hold(kItemApi);
  update({{"uuid", "1"}}, "https://cdn.test/1.jpg");
  update({{"uuid", "2"}}, "https://cdn.test/2.jpg");
  platform_.messageClients.release(kItemApi);
  run();
  EXPECT_THAT(platform_.logger.messages(),
              ElementsAre("Update original image info, Url:https://cdn.test/1.jpg itemId:1",
                          "Update original image info, Url:https://cdn.test/2.jpg itemId:2"));
}

TEST(BackgroundUploadItemDeathTest, ItemIdOutsideTheIntegersStopsTheProcess) {
  EXPECT_DEATH(
      {
        keptLibrary(FakePlatform::kept().seams())
            .configure.backgroundUploadItem("https://cdn.test/a.jpg", {{"uuid", 1e300}});
      },
      "QXAwsUploader: fatal: 1e\\+300 is outside the signed 64-bit range");
}

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
  /// Runs what every queue held when it was called.
  void drain() {
    auto& dispatch = library.platform.dispatch;
    const auto reached = dispatch.makeSemaphore(0);
    library.configure.getConfig("avatar", true,
                                [reached](const auto&, const auto&) { reached->signal(); });
    reached->wait();
    dispatch.globalQueue().sync([] {});
  }

  FakePlatform& fakes_ = FakePlatform::kept();
  // The queues' threads use both until the process ends.
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
  // A request behind the others is answered after them, for none of them fetches any more once the
  // identity stands still.
  drain();
  drain();
  EXPECT_EQ(answers, 100);
}

}  // namespace
}  // namespace qx
