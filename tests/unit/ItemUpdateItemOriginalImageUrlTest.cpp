#include "Classes/ItemUpdateItemOriginalImageUrl.h"

#include <gtest/gtest.h>

#include "unit/JsonDecoder.h"

namespace qx {
namespace {

template <typename Request>
Request filled(std::string Request::*urlField) {
  Request request;
  request.itemId = 77;
  request.*urlField = "https://cdn.test/a.jpg";
  request.originalImageSha1 = "abc";
  request.originalImageHeight = 300;
  request.originalImageWidth = 400;
  request.originalImageFileSize = 5'000'000'000;
  request.originalImageFileFormat = "jpg";
  return request;
}

template <typename Request>
std::string body(const Request& request) {
  return SimpleJson().encode(request.parseParamater(PlainEncoder())).value_or("no JSON");
}

using Plain = ItemUpdateItemOriginalImageUrlRequest;
using Det = ItemUpdateItemOriginalDetImageUrlRequest;

TEST(ItemUpdateItemOriginalImageUrl, IsAPostOfItsPath) {
  EXPECT_EQ(Plain().api(), "v3/item/update_item_original_image_url");
  EXPECT_EQ(Plain().methods(), std::vector<std::string>{"POST"});
  EXPECT_TRUE(Plain().mimeBodies().empty());
}

TEST(ItemUpdateItemOriginalImageUrl, BodyHasAllFieldsInOrder) {
  EXPECT_EQ(body(filled(&Plain::originalImageUrl)),
            R"({"item_id":77,"original_image_url":"https:\/\/cdn.test\/a.jpg",)"
            R"("original_image_sha1":"abc","original_image_height":300,)"
            R"("original_image_width":400,"original_image_file_size":5000000000,)"
            R"("original_image_file_format":"jpg"})");
}

TEST(ItemUpdateItemOriginalImageUrl, AbsentFieldsAreLeftOut) {
  Plain request;
  request.itemId = 1;
  EXPECT_EQ(body(request), R"({"item_id":1,"original_image_url":""})");
  request.originalImageWidth = 0;
  EXPECT_EQ(body(request), R"({"item_id":1,"original_image_url":"","original_image_width":0})");
}

TEST(ItemUpdateItemOriginalImageUrl, AnyBodyDecodes) {
  for (const char* text : {"", "{}", "not json", R"({"code":1})"}) {
    const auto response = Plain().decodeResponse(Data(text), JsonDecoder());
    ASSERT_TRUE(response) << text;
    EXPECT_NE(dynamic_cast<const ItemUpdateItemOriginalImageUrlResponse*>(response->get()),
              nullptr);
  }
}

TEST(ItemUpdateItemOriginalDetImageUrl, IsAPostOfItsPath) {
  EXPECT_EQ(Det().api(), "v3/item/update_item_original_det_image_url");
  EXPECT_EQ(Det().methods(), std::vector<std::string>{"POST"});
  EXPECT_TRUE(Det().mimeBodies().empty());
}

TEST(ItemUpdateItemOriginalDetImageUrl, BodyDiffersInTheUrlKeyAlone) {
  EXPECT_EQ(body(filled(&Det::originalDetImageUrl)),
            R"({"item_id":77,"original_det_image_url":"https:\/\/cdn.test\/a.jpg",)"
            R"("original_image_sha1":"abc","original_image_height":300,)"
            R"("original_image_width":400,"original_image_file_size":5000000000,)"
            R"("original_image_file_format":"jpg"})");
}

TEST(ItemUpdateItemOriginalDetImageUrl, AbsentFieldsAreLeftOut) {
  Det request;
  request.itemId = 1;
  EXPECT_EQ(body(request), R"({"item_id":1,"original_det_image_url":""})");
}

TEST(ItemUpdateItemOriginalDetImageUrl, AnyBodyDecodes) {
  const auto response = Det().decodeResponse(Data("not json"), JsonDecoder());
  ASSERT_TRUE(response);
  EXPECT_NE(dynamic_cast<const ItemUpdateItemOriginalDetImageUrlResponse*>(response->get()),
            nullptr);
}

}  // namespace
}  // namespace qx
