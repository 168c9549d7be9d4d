#include "Classes/TaskExecutor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "unit/TaskExecutorFixture.h"

namespace qx {
namespace {

// ---- Before the transfer

TEST_F(TaskExecutorTest, TaskWithoutDataFailsAtOnceAndAsksForNoCredentials) {
  const auto executor = make(std::make_shared<FileTask>(platform.files, "a.jpg", "avatar",
                                                        "gone.jpg", 0, AWSParameterMap{}));
  executor->execute();
  expectFailure(AWSErrorCode::missParamters, "[Error] not found file or data", std::nullopt, "");
  EXPECT_EQ(reports[0].executor, executor);
  EXPECT_FALSE(executor->uploadTime);
  run();
  EXPECT_TRUE(platform.messageClients.requests().empty());
  EXPECT_EQ(reports.size(), 1U);
}

TEST_F(TaskExecutorTest, ExecuteReturnsBeforeTheTransfer) {
  make(dataTask())->execute();
  EXPECT_TRUE(reports.empty());
  EXPECT_TRUE(platform.objectStore.uploads().empty());
  run();
  EXPECT_EQ(reports.size(), 1U);
}

TEST_F(TaskExecutorTest, UploadLeavesTheCredentialsQueueBeforeItIsSent) {
  for (const bool resized : {false, true}) {
    library.configure.needServerResize = resized;
    make(dataTask())->execute();
    while (platform.dispatch.pendingCount("com.aws.hand.over") == 0) {
      ASSERT_TRUE(platform.dispatch.runNext());
    }
    EXPECT_EQ(platform.dispatch.pendingCount("com.aws.get.config"), 0U);
    EXPECT_EQ(platform.objectStore.uploads().size(), resized ? 1U : 0U);
    EXPECT_EQ(platform.uploadClients.uploads().size(), 0U);
    run();
    EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
    EXPECT_EQ(platform.uploadClients.uploads().size(), resized ? 1U : 0U);
  }
}

TEST_F(TaskExecutorTest, UploadCancelledAfterItsCredentialsIsNeverSent) {
  for (const bool resized : {false, true}) {
    library.configure.needServerResize = resized;
    const auto executor = make(dataTask());
    executor->execute();
    while (platform.dispatch.pendingCount("com.aws.hand.over") == 0) {
      ASSERT_TRUE(platform.dispatch.runNext());
    }
    reports.clear();
    executor->cancel();
    run();
    expectFailure(AWSErrorCode::unknown, "[Error] cancelled", std::nullopt, "main");
    EXPECT_TRUE(platform.objectStore.uploads().empty());
    EXPECT_TRUE(platform.uploadClients.uploads().empty());
  }
}

TEST_F(TaskExecutorTest, MissingIdentityIsReportedAsTheServiceGivesIt) {
  platform.mediator.signOut();
  const auto executor = attempt(dataTask());
  expectFailure(AWSErrorCode::missParamters, "[Error] miss userId or accessToken", std::nullopt,
                "com.aws.get.config");
  EXPECT_FALSE(executor->uploadTime);
}

TEST_F(TaskExecutorTest, BackendErrorIsReportedAsTheServiceGivesIt) {
  platform.messageClients.fail(kGetUploadConfig, Error{"QXNetworking", 503, "HTTP 503"});
  attempt(dataTask());
  expectFailure(AWSErrorCode::serverError, "HTTP 503", std::nullopt, "com.aws.get.config");
}

TEST_F(TaskExecutorTest, UnknownScopeIsReportedAsTheServiceGivesIt) {
  attempt(std::make_shared<DataTask>("a.jpg", "cellar", Data("b"), AWSParameterMap{}));
  expectFailure(AWSErrorCode::keyNotMatch, "[Error] not found config with key:cellar", std::nullopt,
                "com.aws.get.config");
}

TEST_F(TaskExecutorTest, ConfigurationFailureSkipsTheTransferOnBothRoutes) {
  platform.messageClients.fail(kGetUploadConfig, Error{"QXNetworking", 503, "HTTP 503"});
  attempt(dataTask());
  resizeOnServer();
  attempt(dataTask());
  EXPECT_EQ(reports.size(), 2U);
  EXPECT_TRUE(platform.objectStore.uploads().empty());
  EXPECT_TRUE(platform.uploadClients.uploads().empty());
}

TEST_F(TaskExecutorTest, ExpiredCredentialsAreFetchedAnew) {
  attempt(dataTask());
  platform.clock.set(1'800'000'000);
  attempt(dataTask());
  EXPECT_EQ(platform.messageClients.requests(kGetUploadConfig).size(), 2U);
}

TEST_F(TaskExecutorTest, RouteIsTheStoreUnlessTheServerResizes) {
  attempt(dataTask());
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_TRUE(platform.uploadClients.uploads().empty());
  resizeOnServer();
  attempt(dataTask());
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_EQ(platform.uploadClients.uploads().size(), 1U);
}

TEST_F(TaskExecutorTest, RouteIsChosenWhenTheCredentialsAreThere) {
  make(dataTask())->execute();
  resizeOnServer();
  run();
  EXPECT_TRUE(platform.objectStore.uploads().empty());
  EXPECT_EQ(platform.uploadClients.uploads().size(), 1U);
}

// ---- Object store

TEST_F(TaskExecutorTest, StoreGetsTheBytesWhereTheyLieUnderPathAndName) {
  TracedBytes bytes("bytes");
  attempt(std::make_shared<DataTask>("a.b.jpg", "avatar", bytes.give(), AWSParameterMap{}));
  const auto uploads = platform.objectStore.uploads();
  ASSERT_EQ(uploads.size(), 1U);
  EXPECT_EQ(uploads[0].utility, utilityKey());
  EXPECT_GT(utilityKey().size(), std::string("avatar").size());
  EXPECT_EQ(uploads[0].bucket, "photos");
  EXPECT_EQ(uploads[0].key, "u/7/a.b.jpg");
  EXPECT_EQ(uploads[0].contentType, "");
  EXPECT_EQ(uploads[0].data.bytes(), bytes.place);
  EXPECT_EQ(uploads[0].data.size(), 5U);
}

TEST_F(TaskExecutorTest, NoSeparatorIsPutBetweenPathAndName) {
  backendGives(recordWith("authorized_path", "u/7"));
  attempt(dataTask());
  EXPECT_EQ(platform.objectStore.uploads().at(0).key, "u/7a.b.jpg");
}

TEST_F(TaskExecutorTest, EmptyBufferIsUploaded) {
  attempt(std::make_shared<DataTask>("a.jpg", "avatar", Data(), AWSParameterMap{}));
  EXPECT_TRUE(platform.objectStore.uploads().at(0).data.empty());
  EXPECT_TRUE(reports.at(0).status.succeeded());
}

TEST_F(TaskExecutorTest, StoredObjectIsReportedOnTheMainQueueWithItsUrl) {
  const auto executor = attempt(dataTask({{"itemId", "42"}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].executor, executor);
  EXPECT_TRUE(reports[0].status.succeeded());
  EXPECT_EQ(reports[0].url, "https://cdn.test/u/7/a.b.jpg");
  EXPECT_EQ(reports[0].itemId, 42);
  EXPECT_EQ(reports[0].queue, "main");
}

TEST_F(TaskExecutorTest, UploadTimeRunsFromTheStartOfTheTransferToItsResult) {
  const auto executor = make(dataTask());
  platform.objectStore.hold();
  executor->execute();
  platform.clock.advance(100);
  run();
  EXPECT_FALSE(executor->uploadTime);
  platform.clock.advance(2.5);
  platform.objectStore.release();
  platform.clock.advance(100);
  run();
  EXPECT_EQ(executor->uploadTime, 2.5);
}

TEST_F(TaskExecutorTest, ScopeWithoutTransferUtilityIsNotConfigured) {
  platform.objectStore.refuseConfigurations();
  attempt(dataTask());
  expectFailure(AWSErrorCode::noConfigured, "[Error] not found config", std::nullopt,
                "com.aws.get.config");
}

TEST_F(TaskExecutorTest, TransferThatNeverStartsFailsOnTheMainQueueWithoutUrlAndTime) {
  platform.objectStore.failAtOnce(Error{"ObjectStore", 2, "AccessDenied (HTTP 403)"});
  const auto executor = attempt(dataTask());
  expectFailure(AWSErrorCode::clientError, "AccessDenied (HTTP 403)", std::nullopt, "main");
  EXPECT_FALSE(executor->uploadTime);
}

TEST_F(TaskExecutorTest, CodeOfATransferThatNeverStartsIsUnknownWhenItIsNoneOfOurs) {
  platform.objectStore.failAtOnce(Error{"Transport", 404, "no route"});
  attempt(dataTask());
  expectFailure(AWSErrorCode::unknown, "no route", std::nullopt, "main");
}

TEST_F(TaskExecutorTest, FailedTransferIsReportedWithTheUrlItWouldHaveHad) {
  const auto executor = make(dataTask({{"itemId", "42"}}));
  platform.objectStore.hold();
  platform.objectStore.failOnce(Error{"ObjectStore", 3, "SlowDown (HTTP 503)"});
  executor->execute();
  run();
  platform.clock.advance(4);
  platform.objectStore.release();
  run();
  expectFailure(AWSErrorCode::serverError, "SlowDown (HTTP 503)", "https://cdn.test/u/7/a.b.jpg",
                "main");
  EXPECT_EQ(executor->uploadTime, 4);
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"itemId", "42"}}));
  EXPECT_TRUE(platform.mediator.performed(kLongId).empty());
}

class StoreErrorCode : public TaskExecutorTest,
                       public testing::WithParamInterface<std::pair<std::int64_t, AWSErrorCode>> {};

TEST_P(StoreErrorCode, BecomesTheLibrarysCodeOrUnknown) {
  platform.objectStore.failOnce(Error{"ObjectStore", GetParam().first, "text"});
  attempt(dataTask());
  expectFailure(GetParam().second, "text", "https://cdn.test/u/7/a.b.jpg", "main");
}

INSTANTIATE_TEST_SUITE_P(Codes, StoreErrorCode,
                         testing::Values(std::pair{0, AWSErrorCode::unknown},
                                         std::pair{1, AWSErrorCode::redirection},
                                         std::pair{2, AWSErrorCode::clientError},
                                         std::pair{3, AWSErrorCode::serverError},
                                         std::pair{4, AWSErrorCode::localFileNotFound},
                                         std::pair{100, AWSErrorCode::noConfigured},
                                         std::pair{101, AWSErrorCode::keyNotMatch},
                                         std::pair{102, AWSErrorCode::missParamters},
                                         std::pair{5, AWSErrorCode::unknown},
                                         std::pair{404, AWSErrorCode::unknown},
                                         std::pair{-1, AWSErrorCode::unknown}));

// ---- Life

TEST_F(TaskExecutorTest, EveryOutcomeIsFineWithoutACallback) {
  const auto silent = [this](std::shared_ptr<Task> task) {
    const auto executor = make(std::move(task));
    executor->complete = nullptr;
    executor->execute();
    run();
  };
  silent(
      std::make_shared<FileTask>(platform.files, "a.jpg", "avatar", "gone", 0, AWSParameterMap{}));
  silent(dataTask());
  silent(dataTask({{"itemId", "1"}}));
  silent(std::make_shared<DataTask>("a.jpg", "cellar", Data("b"), AWSParameterMap{}));
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "no"});
  silent(dataTask());
  platform.objectStore.failAtOnce(Error{"ObjectStore", 2, "no"});
  silent(dataTask());
  resizeOnServer();
  silent(dataTask());
  platform.uploadClients.answerStatus(500);
  silent(dataTask());
  EXPECT_TRUE(reports.empty());
  EXPECT_EQ(platform.objectStore.uploads().size(), 4U);
  EXPECT_EQ(platform.uploadClients.uploads().size(), 2U);
}

TEST_F(TaskExecutorTest, KeepsItselfAliveUntilTheReportAndNotLonger) {
  std::weak_ptr<TaskExecutor> alive;
  platform.objectStore.hold();
  {
    const auto executor = make(dataTask());
    alive = executor;
    executor->execute();
  }
  EXPECT_FALSE(alive.expired());
  run();
  EXPECT_FALSE(alive.expired());
  platform.objectStore.release();
  EXPECT_FALSE(alive.expired());
  run();
  ASSERT_EQ(reports.size(), 1U);
  reports.clear();
  EXPECT_TRUE(alive.expired());
}

TEST_F(TaskExecutorTest, ServerRouteKeepsItAliveUntilTheReportAndNotLonger) {
  resizeOnServer();
  std::weak_ptr<TaskExecutor> alive;
  platform.uploadClients.hold();
  {
    const auto executor = make(dataTask({{"itemId", "1"}}));
    alive = executor;
    executor->execute();
  }
  run();
  EXPECT_FALSE(alive.expired());
  platform.uploadClients.release();
  ASSERT_EQ(reports.size(), 1U);
  reports.clear();
  EXPECT_TRUE(alive.expired());
}

TEST_F(TaskExecutorTest, AnsweredQuestionThatTheHostKeepsHoldsNoExecutor) {
  platform.mediator.setLongId(1);
  const std::weak_ptr<TaskExecutor> alive = attempt(dataTask());
  reports.clear();
  // The fake mediator remembers its arguments, as a host may.
  ASSERT_EQ(platform.mediator.performed(kLongId).size(), 1U);
  EXPECT_TRUE(alive.expired());
}

TEST_F(TaskExecutorTest, PayloadGoesWithTheAttempt) {
  platform.messageClients.fail(kGetUploadConfig, Error{"QXNetworking", 503, "HTTP 503"});
  TracedBytes bytes("bytes");
  auto executor =
      make(std::make_shared<DataTask>("a.jpg", "avatar", bytes.give(), AWSParameterMap{}));
  executor->execute();
  executor = nullptr;
  EXPECT_FALSE(bytes.alive.expired());
  run();
  ASSERT_EQ(reports.size(), 1U);
  reports.clear();
  EXPECT_TRUE(bytes.alive.expired());
}

TEST_F(TaskExecutorTest, FileIsReadOncePerAttempt) {
  platform.files.put("/documents/a.jpg", "stored");
  platform.objectStore.hold();
  const auto executor = attempt(
      std::make_shared<FileTask>(platform.files, "a.jpg", "avatar", "a.jpg", 0, AWSParameterMap{}));
  platform.files.erase("/documents/a.jpg");
  platform.objectStore.release();
  run();
  EXPECT_TRUE(reports.at(0).status.succeeded());
  EXPECT_EQ(platform.objectStore.object("photos", "u/7/a.jpg"), Data("stored"));
}

TEST_F(TaskExecutorTest, HundredThousandImmediateReportsLeaveNothingBehind) {
  const auto token = std::make_shared<int>(0);
  for (int i = 0; i < 100'000; ++i) {
    auto executor = std::make_shared<TaskExecutor>(
        library.platform, library.configure, library.events, UploadKind::background,
        std::make_shared<FileTask>(platform.files, "a.jpg", "avatar", "gone", 0,
                                   AWSParameterMap{}));
    executor->complete = [token](const auto&, const auto&, const auto&, std::int64_t) { ++*token; };
    executor->execute();
  }
  EXPECT_EQ(*token, 100'000);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TaskExecutorTest, ThousandUploadsLeaveNothingBehind) {
  const auto token = std::make_shared<int>(0);
  for (int i = 0; i < 1000; ++i) {
    auto executor = std::make_shared<TaskExecutor>(
        library.platform, library.configure, library.events, UploadKind::background,
        dataTask(i % 2 == 0 ? AWSParameterMap{} : AWSParameterMap{{"itemId", "1"}}));
    executor->complete = [token](const auto&, const auto&, const auto&, std::int64_t) { ++*token; };
    executor->execute();
  }
  run();
  EXPECT_EQ(*token, 1000);
  EXPECT_EQ(token.use_count(), 1);
}

// ---- sha1

TEST_F(TaskExecutorTest, Sha1IsFortyLowerCaseHexadecimals) {
  // The examples of FIPS 180.
  EXPECT_EQ(sha1(platform.digests, Data()), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha1(platform.digests, Data("abc")), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(
      sha1(platform.digests, Data("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
      "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
}

}  // namespace
}  // namespace qx
