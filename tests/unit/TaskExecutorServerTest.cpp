#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "unit/TaskExecutorFixture.h"

namespace qx {
namespace {

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

}  // namespace
}  // namespace qx
