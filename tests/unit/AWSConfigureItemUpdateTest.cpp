#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "unit/AWSConfigureFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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

}  // namespace
}  // namespace qx
