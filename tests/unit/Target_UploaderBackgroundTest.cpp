#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "unit/Target_UploaderFixture.h"

namespace qx {
namespace {

// ---- Action_BackgroundUpload

TEST_F(TargetUploaderTest, BackgroundUploadWithoutIdentityOnlyCounts) {
  perform("Action_BackgroundUpload:", backgroundParameters());
  run();
  EXPECT_EQ(library.uploader.generateFileCount, 1);
  EXPECT_TRUE(platform.files.paths().empty());
}

TEST_F(TargetUploaderTest, BackgroundUploadStoresBytesUnderTheGeneratedName) {
  setUpOffline();
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_BackgroundUpload:", backgroundParameters());
  EXPECT_EQ(platform.files.text("/documents/aws-0011/123456/1700000000-5420.jpg"), "bytes");
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_F(TargetUploaderTest, BackgroundUploadReachesTheHostsCallback) {
  std::vector<std::optional<std::string>> urls;
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(
                            [&urls](std::string, std::optional<std::string> url,
                                    std::map<std::string, std::string>,
                                    std::optional<Error>) { urls.push_back(url); })}});
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_BackgroundUpload:", backgroundParameters());
  run();
  EXPECT_EQ(urls,
            std::vector<std::optional<std::string>>{"https://cdn.test/u/7/1700000000-5420.jpg"});
}

TEST_F(TargetUploaderTest, BackgroundUploadWithoutExtrasHasNone) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", backgroundParameters()), AWSParameterMap());
}

TEST_F(TargetUploaderTest, BackgroundUploadJoinsExtraAndItem) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"k", "v"}, {"itemType", "old"}};
  parameters["itemType"] = "item";
  parameters["itemId"] = "i77";
  parameters["imageFrom"] = -3;
  parameters["tags"] = Array{"a", "b/c"};
  parameters["fields"] = Dictionary{{"k", "v"}};
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"k", "v"},
                             {"itemType", "item"},
                             {"itemId", "i77"},
                             {"imageFrom", "-3"},
                             {"tags", R"(["a","b\/c"])"},
                             {"fields", R"({"k":"v"})"}}));
}

TEST_F(TargetUploaderTest, MistypedItemKeysLeaveTheEntriesOfExtra) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"itemType", "old"}, {"itemId", "o1"}, {"imageFrom", "0"}};
  parameters["itemType"] = 1;
  parameters["itemId"] = 2;
  parameters["imageFrom"] = "3";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"itemType", "old"}, {"itemId", "o1"}, {"imageFrom", "0"}}));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, TagsAndFieldsOfExtraAreRemoved) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"tags", "[]"}, {"fields", "{}"}, {"k", "v"}};
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters), (AWSParameterMap{{"k", "v"}}));
}

TEST_F(TargetUploaderTest, MistypedTagsAndFieldsRemoveThoseOfExtraToo) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"tags", "[]"}, {"fields", "{}"}, {"k", "v"}};
  parameters["tags"] = Array{"a", 1};
  parameters["fields"] = "text";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters), (AWSParameterMap{{"k", "v"}}));
}

TEST_F(TargetUploaderTest, ExtraWithAnythingButTextsIsIgnoredWhole) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"k", "v"}, {"n", 5}};
  parameters["itemType"] = "item";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"itemType", "item"}}));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, ExtraOfAnotherTypeIsIgnored) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:",
                        with(backgroundParameters(), "extra", Array{"k", "v"})),
            AWSParameterMap());
}

TEST_F(TargetUploaderTest, BackgroundUploadReadsNoDisableToPQS) {
  EXPECT_EQ(
      queuedExtra("Action_BackgroundUpload:", with(backgroundParameters(), "disableToPQS", true)),
      AWSParameterMap());
}

// ---- Action_BackgroundUploadImage

TEST_F(TargetUploaderTest, ImageUploadCarriesTheImagesAttributes) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUploadImage:", imageParameters()),
            (AWSParameterMap{{"uuid", "77"},
                             {"OriginalImageWidthKey", "640"},
                             {"OriginalImageHeightKey", "480"},
                             {"OriginalImageFileSizeKey", "5"},
                             // The output of: printf image | sha1sum
                             {"OriginalImageSha1Key", "0e76292794888d4f1fa75fb3aff4ca27c58f56a6"},
                             {"OriginalImageFileFormatKey", "png"},
                             {"OriginalImageUseDetUploadKey", "false"},
                             {"itemId", "77"}}));
}

TEST_F(TargetUploaderTest, ImageUploadCarriesWhatTheHostAdds) {
  Dictionary parameters = imageParameters();
  parameters["useDetUpload"] = "true";
  parameters["updatePQS"] = true;
  parameters["tags"] = Array{"a"};
  parameters["fields"] = Dictionary{{"k", "v"}};
  const AWSParameterMap extra = queuedExtra("Action_BackgroundUploadImage:", parameters);
  EXPECT_EQ(extra.size(), 11U);
  EXPECT_EQ(extra.at("OriginalImageUseDetUploadKey"), AWSBasicParameter("true"));
  EXPECT_EQ(extra.at("updatePQS"), AWSBasicParameter("1"));
  EXPECT_EQ(extra.at("tags"), AWSBasicParameter(R"(["a"])"));
  EXPECT_EQ(extra.at("fields"), AWSBasicParameter(R"({"k":"v"})"));
}

TEST_F(TargetUploaderTest, ImageUploadWritesAFalseUpdatePQSAsZero) {
  const AWSParameterMap extra =
      queuedExtra("Action_BackgroundUploadImage:", with(imageParameters(), "updatePQS", false));
  EXPECT_EQ(extra.at("updatePQS"), AWSBasicParameter("0"));
}

TEST_F(TargetUploaderTest, ImageUploadTreatsMistypedOptionsAsAbsent) {
  Dictionary parameters = imageParameters();
  parameters["useDetUpload"] = true;
  parameters["updatePQS"] = "1";
  parameters["tags"] = "a";
  parameters["fields"] = Array{"a"};
  const AWSParameterMap extra = queuedExtra("Action_BackgroundUploadImage:", parameters);
  EXPECT_EQ(extra.size(), 8U);
  EXPECT_EQ(extra.at("OriginalImageUseDetUploadKey"), AWSBasicParameter("false"));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, ImageUploadReadsNeitherExtraNorItemTypeNorImageFrom) {
  Dictionary parameters = imageParameters();
  parameters["extra"] = Dictionary{{"k", "v"}};
  parameters["itemType"] = "item";
  parameters["imageFrom"] = 1;
  EXPECT_EQ(queuedExtra("Action_BackgroundUploadImage:", parameters).size(), 8U);
}

TEST_F(TargetUploaderTest, ImageSizeIsTruncatedTowardZero) {
  platform.imageHeaders.add(Data("odd"), {99.9, -0.9});
  const AWSParameterMap extra =
      queuedExtra("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("odd")));
  EXPECT_EQ(extra.at("OriginalImageWidthKey"), AWSBasicParameter("99"));
  EXPECT_EQ(extra.at("OriginalImageHeightKey"), AWSBasicParameter("0"));
}

class ImpossibleLength : public TargetUploaderTest, public testing::WithParamInterface<double> {};

TEST_P(ImpossibleLength, StopsTheProcess) {
  Dictionary wide = imageParameters();
  platform.imageHeaders.add(Data("wide"), {GetParam(), 1});
  platform.imageHeaders.add(Data("tall"), {1, GetParam()});
  EXPECT_DEATH(
      perform("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("wide"))),
      "QXAwsUploader: fatal: ");
  EXPECT_DEATH(
      perform("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("tall"))),
      "QXAwsUploader: fatal: ");
}

INSTANTIATE_TEST_SUITE_P(Lengths, ImpossibleLength,
                         testing::Values(std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(),
                                         std::numeric_limits<double>::quiet_NaN(), 0x1p63,
                                         -0x1.1p63));

TEST_F(TargetUploaderTest, FinishedImageUploadIsReportedToTheBackend) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  const auto requests = platform.messageClients.requests(kUpdateUrl);
  ASSERT_EQ(requests.size(), 1U);
  const std::map<std::string, Value> sent(requests[0].parameters.begin(),
                                          requests[0].parameters.end());
  EXPECT_EQ(sent.at("item_id"), Value(std::int64_t{77}));
}

TEST_F(TargetUploaderTest, FinishedImageUploadIsNotReportedWithoutSetUp) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
}

TEST_F(TargetUploaderTest, FailedImageUploadReachesTheHostAndNotTheBackend) {
  std::vector<std::optional<Error>> errors;
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(
                            [&errors](std::string, std::optional<std::string>,
                                      std::map<std::string, std::string>,
                                      std::optional<Error> error) { errors.push_back(error); })}});
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "AccessDenied"});
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  EXPECT_EQ(errors,
            std::vector<std::optional<Error>>{(Error{"AWSUploaderError", 2, "AccessDenied"})});
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
}

}  // namespace
}  // namespace qx
