#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "unit/Target_UploaderFixture.h"

namespace qx {
namespace {

// ---- Action_Upload

TEST_F(TargetUploaderTest, UploadReturnsAtOnceAndCompletesOnTheMainQueue) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_Upload:", with(uploadParameters(), "itemId", "9"));
  EXPECT_TRUE(completed.empty());
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_EQ(completed[0].url, "https://cdn.test/u/7/1700000000-5420.jpg");
  EXPECT_EQ(completed[0].itemId, 9);
  EXPECT_FALSE(completed[0].error);
  EXPECT_EQ(completed[0].queue, "main");
  EXPECT_EQ(platform.objectStore.object("photos", "u/7/1700000000-5420.jpg"), Data("bytes"));
  EXPECT_EQ(library.uploader.generateFileCount, 1);
}

TEST_F(TargetUploaderTest, UploadNeedsNoSetUpAndIsNeitherQueuedNorStored) {
  perform("Action_Upload:", uploadParameters());
  run();
  EXPECT_EQ(completed.size(), 1U);
  EXPECT_EQ(library.taskQueue->total(), 0);
  EXPECT_TRUE(platform.files.paths().empty());
}

TEST_F(TargetUploaderTest, UploadFailureCarriesItsCodeInTheError) {
  platform.mediator.signOut();
  perform("Action_Upload:", uploadParameters());
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].url);
  EXPECT_EQ(completed[0].itemId, 0);
  EXPECT_EQ(completed[0].error,
            (Error{"AWSUploaderError", 102, "[Error] miss userId or accessToken"}));
}

TEST_F(TargetUploaderTest, UploadSendsTheHostsBytesFromWhereTheyLie) {
  TracedBytes bytes("payload");
  perform("Action_Upload:", with(uploadParameters(), "data", bytes.give()));
  run();
  EXPECT_EQ(platform.objectStore.uploads().at(0).data.bytes(), bytes.place);
}

TEST_F(TargetUploaderTest, EmptyBufferIsUploaded) {
  perform("Action_Upload:", with(uploadParameters(), "data", Data()));
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].error);
  EXPECT_TRUE(platform.objectStore.uploads().at(0).data.empty());
}

TEST_F(TargetUploaderTest, UploadSuffixKeepsItsDot) {
  perform("Action_Upload:", with(uploadParameters(), "suffix", "tar.gz"));
  run();
  EXPECT_TRUE(platform.objectStore.uploads().at(0).key.ends_with(".tar.gz"));
}

TEST_F(TargetUploaderTest, UploadsOfOneTickGetDifferentNames) {
  platform.random.push(1);
  platform.random.push(1);
  perform("Action_Upload:", uploadParameters());
  perform("Action_Upload:", uploadParameters());
  run();
  const auto uploads = platform.objectStore.uploads();
  ASSERT_EQ(uploads.size(), 2U);
  EXPECT_NE(uploads[0].key, uploads[1].key);
}

TEST_F(TargetUploaderTest, UploadsStartedOnTwoThreadsGetDifferentNames) {
  platform.random.push(1);
  platform.random.push(1);
  const Dictionary parameters = uploadParameters();
  std::thread other([&] { Target_Uploader(library).Action_Upload(parameters); });
  Target_Uploader(library).Action_Upload(parameters);
  other.join();
  run();
  const auto uploads = platform.objectStore.uploads();
  ASSERT_EQ(uploads.size(), 2U);
  EXPECT_NE(uploads[0].key, uploads[1].key);
  EXPECT_EQ(completed.size(), 2U);
}

TEST_F(TargetUploaderTest, UploadCarriesTheItemsTagsIntoTracking) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["itemId"] = "9";
  parameters["imageFrom"] = 2;
  parameters["tags"] = Array{"a", "b/c"};
  parameters["fields"] = Dictionary{{"k", 1}};
  const auto tagged = taggedBy(parameters);
  ASSERT_TRUE(tagged);
  EXPECT_EQ(tagged->itemType, "avatar");
  EXPECT_EQ(tagged->itemId, 9);
  EXPECT_EQ(tagged->imageSource, 2);
  EXPECT_EQ(tagged->tags, (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(tagged->fields, (Dictionary{{"k", std::int64_t{1}}}));
}

TEST_F(TargetUploaderTest, UploadIgnoresTheHostsExtra) {
  Dictionary parameters = uploadParameters();
  parameters["extra"] = Dictionary{{"itemType", "avatar"}, {"imageFrom", "1"}, {"itemId", "9"}};
  platform.mediator.setLongId(1);
  EXPECT_FALSE(taggedBy(parameters));
  EXPECT_EQ(completed.at(0).itemId, 1);
}

TEST_F(TargetUploaderTest, DisableToPQSStopsTheTaggingOfAnUploadWhenTrue) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["imageFrom"] = 2;
  parameters["disableToPQS"] = true;
  EXPECT_FALSE(taggedBy(parameters));
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 1U);
}

class DisableToPQS : public TargetUploaderTest, public testing::WithParamInterface<Value> {};

TEST_P(DisableToPQS, OfAnotherValueStopsNothing) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["imageFrom"] = 2;
  parameters["disableToPQS"] = GetParam();
  EXPECT_TRUE(taggedBy(parameters));
}

INSTANTIATE_TEST_SUITE_P(Values, DisableToPQS,
                         testing::Values(Value(false), Value(1), Value("1"), Value("true")));

}  // namespace
}  // namespace qx
