#include "Classes/TaskExecutor.h"

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "unit/UploadFixture.h"

namespace qx {
namespace {

constexpr const char* kLongId = "Tracking_GetLongIdWithCompletion:";

class TaskExecutorTest : public UploadFixture {
 protected:
  struct Report {
    std::shared_ptr<TaskExecutor> executor;
    std::optional<std::string> url;
    AWSCallbackStatus status;
    std::int64_t itemId = 0;
    /// The queue it came on; empty for the test's own thread.
    std::string queue;
  };

  std::shared_ptr<TaskExecutor> make(std::shared_ptr<Task> task) {
    auto executor =
        std::make_shared<TaskExecutor>(library.platform, library.configure, library.events,
                                       UploadKind::background, std::move(task));
    executor->uploadWorker = platform.uploadClients.make({}, 30);
    executor->complete = [this](const std::shared_ptr<TaskExecutor>& reporter,
                                const std::optional<std::string>& url,
                                const AWSCallbackStatus& status, std::int64_t itemId) {
      reports.push_back({reporter, url, status, itemId, platform.dispatch.currentQueueLabel()});
    };
    return executor;
  }
  static std::shared_ptr<DataTask> dataTask(AWSParameterMap extra = {}) {
    return std::make_shared<DataTask>("a.b.jpg", "avatar", Data("bytes"), std::move(extra));
  }
  /// One attempt, run to its end.
  std::shared_ptr<TaskExecutor> attempt(std::shared_ptr<Task> task) {
    auto executor = make(std::move(task));
    executor->execute();
    run();
    return executor;
  }
  void resizeOnServer() { library.configure.needServerResize = true; }

  void expectFailure(AWSErrorCode code, const std::string& message,
                     const std::optional<std::string>& url, const std::string& queue) {
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].status, AWSCallbackStatus::failure(code, message));
    EXPECT_EQ(reports[0].url, url);
    EXPECT_EQ(reports[0].itemId, 0);
    EXPECT_EQ(reports[0].queue, queue);
  }

  std::vector<Report> reports;
};

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

// ---- Upload server

TEST_F(TaskExecutorTest, ServerGetsTheFormInItsOrder) {
  resizeOnServer();
  TracedBytes bytes("image");
  attempt(std::make_shared<DataTask>("a.b.jpg", "avatar", bytes.give(), AWSParameterMap{}));
  const auto uploads = platform.uploadClients.uploads();
  ASSERT_EQ(uploads.size(), 1U);
  std::vector<std::pair<std::string, std::string>> parts;
  for (const auto& part : uploads[0].parts) {
    parts.emplace_back(part.name, std::string(part.data.text()));
    EXPECT_FALSE(part.mimeType) << part.name;
    if (part.name == "img") {
      EXPECT_EQ(part.fileName, "img");
      EXPECT_EQ(part.data.bytes(), bytes.place);
    } else {
      EXPECT_FALSE(part.fileName) << part.name;
    }
  }
  EXPECT_EQ(parts,
            (std::vector<std::pair<std::string, std::string>>{{"image_size", "1024"},
                                                              {"format", "webp"},
                                                              {"quality", "90"},
                                                              {"path", "u/7/a.b.webp"},
                                                              {"bucket", "photos"},
                                                              {"img", "image"},
                                                              {"s3_key", "KEY"},
                                                              {"s3_secret", "SECRET"},
                                                              {"s3_session_token", "SESSION"},
                                                              {"s3_region", "eu-west-1"}}));
}

TEST_F(TaskExecutorTest, ServerRequestCarriesAddressAndOurUserAgent) {
  resizeOnServer();
  platform.mediator.answer("QXConfig_GetAwsUploaderServerAddress",
                           Value("https://upload.test/v1?x=1"));
  attempt(dataTask());
  const auto uploads = platform.uploadClients.uploads();
  ASSERT_EQ(uploads.size(), 1U);
  EXPECT_EQ(uploads[0].url, "https://upload.test/v1?x=1");
  EXPECT_EQ(uploads[0].headers,
            (HTTPHeaders{{"Accept-Language", "fake"}, {"User-Agent", "FakeAgent/1"}}));
  EXPECT_FALSE(uploads[0].parameters);
  EXPECT_FALSE(uploads[0].acceptableContentTypes);
  EXPECT_FALSE(uploads[0].hasProgress);
}

TEST_F(TaskExecutorTest, ServerAddressIsEmptyWhenTheHostGivesNone) {
  resizeOnServer();
  attempt(dataTask());
  EXPECT_EQ(platform.uploadClients.uploads().at(0).url, "");
}

TEST_F(TaskExecutorTest, ServerRouteWithoutWorkerIsNotConfigured) {
  resizeOnServer();
  const auto executor = make(dataTask());
  executor->uploadWorker = nullptr;
  executor->execute();
  run();
  expectFailure(AWSErrorCode::noConfigured, "[Error] config error", std::nullopt,
                "com.aws.get.config");
}

TEST_F(TaskExecutorTest, StoreRouteNeedsNoWorker) {
  const auto executor = make(dataTask());
  executor->uploadWorker = nullptr;
  executor->execute();
  run();
  EXPECT_TRUE(reports.at(0).status.succeeded());
}

TEST_F(TaskExecutorTest, ServerRouteNeedsNoTransferUtility) {
  resizeOnServer();
  platform.objectStore.refuseConfigurations();
  attempt(dataTask());
  EXPECT_TRUE(reports.at(0).status.succeeded());
}

TEST_F(TaskExecutorTest, ServerRouteStopsTheProcessForANameWithoutADot) {
  resizeOnServer();
  const auto executor =
      make(std::make_shared<DataTask>("photo", "avatar", Data("b"), AWSParameterMap{}));
  executor->execute();
  EXPECT_DEATH(run(), "QXAwsUploader: fatal: ");
}

TEST_F(TaskExecutorTest, LastDotOfPathAndNameTogetherEndsTheServerPath) {
  resizeOnServer();
  backendGives(recordWith("authorized_path", "v1.0/"));
  attempt(std::make_shared<DataTask>("photo", "avatar", Data("b"), AWSParameterMap{}));
  EXPECT_EQ(platform.uploadClients.uploads().at(0).parts.at(3).data.text(), "v1.webp");
}

TEST_F(TaskExecutorTest, ServerStatus200IsASuccessWithTheWebpUrl) {
  resizeOnServer();
  platform.uploadClients.answerOn(platform.dispatch.globalQueue());
  const auto executor = attempt(dataTask({{"itemId", "42"}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].executor, executor);
  EXPECT_TRUE(reports[0].status.succeeded());
  EXPECT_EQ(reports[0].url, "https://cdn.test/u/7/a.b.webp");
  EXPECT_EQ(reports[0].itemId, 42);
  EXPECT_EQ(reports[0].queue, "global");
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.b.webp"},
                                                      {"itemId", std::int64_t{42}}}));
}

TEST_F(TaskExecutorTest, ServerAnswerWithoutHttpPartIsASuccess) {
  resizeOnServer();
  platform.uploadClients.answerWithoutHttp();
  attempt(dataTask());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_TRUE(reports[0].status.succeeded());
  EXPECT_EQ(reports[0].url, "https://cdn.test/u/7/a.b.webp");
}

class ServerStatus : public TaskExecutorTest, public testing::WithParamInterface<int> {};

TEST_P(ServerStatus, OtherThan200IsAFailureNamedByTheStatusAlone) {
  resizeOnServer();
  platform.uploadClients.answerStatus(GetParam());
  platform.uploadClients.answerOn(platform.dispatch.globalQueue());
  const auto executor = attempt(dataTask());
  expectFailure(AWSErrorCode::serverError, std::to_string(GetParam()), std::nullopt, "global");
  EXPECT_FALSE(executor->uploadTime);
  EXPECT_TRUE(executor->task->extra().empty());
}

INSTANTIATE_TEST_SUITE_P(Statuses, ServerStatus,
                         testing::Values(0, 199, 201, 202, 204, 299, 301, 400, 413, 500, 503));

TEST_F(TaskExecutorTest, ServerTransportErrorIsAServerErrorWhateverItsCode) {
  resizeOnServer();
  platform.uploadClients.answer({Error{"Transport", 2, "connection reset"}, HTTPURLResponse{200}});
  platform.uploadClients.answerOn(platform.dispatch.globalQueue());
  const auto executor = attempt(dataTask());
  expectFailure(AWSErrorCode::serverError, "connection reset", std::nullopt, "global");
  EXPECT_FALSE(executor->uploadTime);
}

TEST_F(TaskExecutorTest, ServerUploadTimeRunsFromTheRequestToItsAnswer) {
  resizeOnServer();
  const auto executor = make(dataTask());
  platform.uploadClients.hold();
  executor->execute();
  run();
  EXPECT_FALSE(executor->uploadTime);
  platform.clock.advance(1.5);
  platform.uploadClients.release();
  EXPECT_EQ(executor->uploadTime, 1.5);
}

// ---- Item id

class ItemIdText : public TaskExecutorTest,
                   public testing::WithParamInterface<std::pair<std::string, std::int64_t>> {};

TEST_P(ItemIdText, ThatIsANumberIsTakenAndKeepsTheCallback) {
  const auto executor = attempt(dataTask({{"itemId", GetParam().first}, {"k", "v"}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, GetParam().second);
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.b.jpg"},
                                                      {"itemId", GetParam().second},
                                                      {"k", "v"}}));
  EXPECT_TRUE(platform.mediator.performed(kLongId).empty());
  EXPECT_TRUE(executor->complete);
}

INSTANTIATE_TEST_SUITE_P(Numbers, ItemIdText,
                         testing::Values(std::pair{"42", 42}, std::pair{"0", 0}, std::pair{"+7", 7},
                                         std::pair{"-5", -5}, std::pair{"007", 7},
                                         std::pair{"9223372036854775807", INT64_MAX},
                                         std::pair{"-9223372036854775808", INT64_MIN}));

class UnusableItemId : public TaskExecutorTest,
                       public testing::WithParamInterface<AWSBasicParameter> {};

TEST_P(UnusableItemId, IsReplacedByTheHostsNumberAndClearsTheCallback) {
  platform.mediator.setLongId(77);
  const auto executor = attempt(dataTask({{"itemId", GetParam()}}));
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_TRUE(reports[0].status.succeeded());
  EXPECT_EQ(reports[0].url, "https://cdn.test/u/7/a.b.jpg");
  EXPECT_EQ(reports[0].itemId, 77);
  EXPECT_EQ(executor->task->extra(), (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.b.jpg"},
                                                      {"itemId", std::int64_t{77}}}));
  EXPECT_EQ(platform.mediator.performed(kLongId).size(), 1U);
  EXPECT_FALSE(executor->complete);
}

INSTANTIATE_TEST_SUITE_P(
    Values, UnusableItemId,
    testing::Values(AWSBasicParameter("abc"), AWSBasicParameter(""), AWSBasicParameter("-"),
                    AWSBasicParameter(" 42"), AWSBasicParameter("42 "), AWSBasicParameter("4.2"),
                    AWSBasicParameter("0x10"), AWSBasicParameter("9223372036854775808"),
                    AWSBasicParameter(std::int64_t{42}), AWSBasicParameter(std::uint64_t{42}),
                    AWSBasicParameter(42.0)));

TEST_F(TaskExecutorTest, AbsentItemIdIsTheHostsNumber) {
  platform.mediator.setLongId(-3);
  attempt(dataTask());
  EXPECT_EQ(reports.at(0).itemId, -3);
}

TEST_F(TaskExecutorTest, ItemIdIsGeneratedWhenTheHostHasNoNumber) {
  platform.clock.set(1'712'345'678);
  const auto executor = attempt(dataTask());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 4562345678);
  EXPECT_EQ(executor->task->extra().at("itemId"), AWSBasicParameter(std::int64_t{4562345678}));
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, ReportWaitsForTheHostsNumberAndComesOnItsThread) {
  platform.mediator.holdLongIds();
  const auto executor = attempt(dataTask());
  EXPECT_TRUE(reports.empty());
  EXPECT_TRUE(executor->task->extra().empty());
  EXPECT_EQ(platform.mediator.releaseLongIds(9), 1U);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 9);
  EXPECT_EQ(reports[0].queue, "");
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, CallbackIsStillSetWhileItRuns) {
  platform.mediator.setLongId(1);
  const auto executor = make(dataTask());
  bool wasSet = false;
  executor->complete = [&wasSet](const std::shared_ptr<TaskExecutor>& reporter, const auto&,
                                 const auto&,
                                 std::int64_t) { wasSet = static_cast<bool>(reporter->complete); };
  executor->execute();
  run();
  EXPECT_TRUE(wasSet);
  EXPECT_FALSE(executor->complete);
}

TEST_F(TaskExecutorTest, CallbackThatClearsItselfLivesOnUntilItReturns) {
  const auto token = std::make_shared<int>(0);
  const auto executor = make(dataTask({{"itemId", "1"}}));
  long heldMeanwhile = 0;
  executor->complete = [token, &heldMeanwhile](const std::shared_ptr<TaskExecutor>& reporter,
                                               const auto&, const auto&, std::int64_t) {
    // Locals, for a closure that goes too early takes its captures along.
    long& held = heldMeanwhile;
    const std::weak_ptr<int> watched = token;
    reporter->complete = nullptr;
    held = watched.use_count();
  };
  executor->execute();
  run();
  EXPECT_EQ(heldMeanwhile, 2) << "by the test and by the callback";
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TaskExecutorTest, HostThatAnswersTwiceIsHeardOnce) {
  platform.mediator.answer(
      kLongId, FakeMediator::Answer([](const std::vector<Value>& arguments) {
        const auto* complete =
            arguments.at(0).asHostObject()->as<std::function<LongIdCompletion>>();
        (*complete)(5);
        (*complete)(6);
        return Value();
      }));
  const auto executor = attempt(dataTask());
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].itemId, 5);
  EXPECT_EQ(executor->task->extra().at("itemId"), AWSBasicParameter(std::int64_t{5}));
}

/// Passes everything on but the question for an item id, which it forgets.
class ForgetfulMediator : public QXMediator {
 public:
  explicit ForgetfulMediator(QXMediator& inner) : inner_(inner) {}
  void registerTarget(std::string name, TargetFactory make) override {
    inner_.registerTarget(std::move(name), std::move(make));
  }
  void performTarget(std::string_view target, std::string_view action,
                     const Dictionary& parameters) override {
    inner_.performTarget(target, action, parameters);
  }
  Value perform(std::string_view selector, const std::vector<Value>& arguments) override {
    return selector == kLongId ? Value() : inner_.perform(selector, arguments);
  }

 private:
  QXMediator& inner_;
};

TEST(TaskExecutorHost, WithoutAnItemIdServiceGetsAGeneratedIdAndOneReport) {
  FakePlatform& platform = FakePlatform::kept();
  ForgetfulMediator mediator(platform.mediator);
  Library& library = keptLibrary(platform.seams().with(mediator));
  platform.mediator.signIn("123456", "token", "https://backend.test");
  platform.clock.set(1'712'345'678);
  platform.messageClients.answer(
      kGetUploadConfig,
      Dictionary{{"upload_token_map",
                  Dictionary{{"avatar", Dictionary{{"access_key_id", "K"},
                                                   {"access_key_secret", "S"},
                                                   {"security_token", "T"},
                                                   {"expiration", 1'800'000'000},
                                                   {"bucket", "photos"},
                                                   {"region", "us-east-1"},
                                                   {"authorized_path", ""},
                                                   {"download_url_prefix", "https://c"}}}}}});
  auto executor = std::make_shared<TaskExecutor>(
      library.platform, library.configure, library.events, UploadKind::background,
      std::make_shared<DataTask>("a.jpg", "avatar", Data("b"), AWSParameterMap{}));
  std::vector<std::int64_t> ids;
  executor->complete = [&ids](const auto&, const auto&, const AWSCallbackStatus& status,
                              std::int64_t itemId) {
    EXPECT_TRUE(status.succeeded());
    ids.push_back(itemId);
  };
  executor->execute();
  platform.dispatch.runUntilIdle();
  EXPECT_EQ(ids, std::vector<std::int64_t>{4562345678});
}

struct GeneratedId {
  std::optional<std::string> userId;
  double now;
  std::int64_t expected;
  friend std::ostream& operator<<(std::ostream& out, const GeneratedId& id) {
    return out << "user " << id.userId.value_or("none") << " at " << std::to_string(id.now);
  }
};

class GenerataItemId : public UploadFixture, public testing::WithParamInterface<GeneratedId> {};

TEST_P(GenerataItemId, JoinsUserRemainderAndShortenedTime) {
  platform.mediator.answer("Account_GetUserId",
                           GetParam().userId ? Value(*GetParam().userId) : Value());
  platform.clock.set(GetParam().now);
  EXPECT_EQ(TaskExecutor::generataItemId(library.platform), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GenerataItemId,
    testing::Values(
        GeneratedId{"123456", 1712345678, 4562345678},
        // Whole seconds, cut off.
        GeneratedId{"123456", 1712345678.999, 4562345678},
        // No user id, none that is a number, none within 64 bits: 0.
        GeneratedId{std::nullopt, 1712345678, 2345678}, GeneratedId{"", 1712345678, 2345678},
        GeneratedId{"abc", 1712345678, 2345678}, GeneratedId{"12a", 1712345678, 2345678},
        GeneratedId{"99999999999999999999", 1712345678, 2345678},
        GeneratedId{"0", 1712345678, 2345678},
        // A remainder has no leading zeros of its own; the time keeps its own.
        GeneratedId{"1000", 1712345678, 2345678}, GeneratedId{"5007", 1712345678, 72345678},
        GeneratedId{"7", 1700000123, 70000123},
        // Signs.
        GeneratedId{"+123456", 1712345678, 4562345678},
        GeneratedId{"-123456", 1712345678, -4562345678}, GeneratedId{"-1000", 1712345678, 2345678},
        // Short times: fewer than four digits stand alone.
        GeneratedId{"123456", 999, 999}, GeneratedId{"123456", 0, 0},
        GeneratedId{"123456", -0.9, 0}, GeneratedId{"123456", -12, -12},
        GeneratedId{"123456", 1234, 4564},
        // Beyond 64 bits.
        GeneratedId{"999", 1e18, 0}));

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
  // The digests of FIPS 180.
  EXPECT_EQ(sha1(platform.digests, Data()), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha1(platform.digests, Data("abc")), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(
      sha1(platform.digests, Data("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
      "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
}

}  // namespace
}  // namespace qx
