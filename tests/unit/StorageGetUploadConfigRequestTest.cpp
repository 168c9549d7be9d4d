#include "Classes/StorageGetUploadConfigRequest.h"

#include <gtest/gtest.h>

#include "unit/JsonDecoder.h"

namespace qx {
namespace {

std::string record(const std::string& bucket) {
  return R"({"access_key_id":"AK","access_key_secret":"SK","security_token":"ST",)"
         R"("expiration":1700000000,"bucket":")" +
         bucket +
         R"(","region":"eu-west-1","authorized_path":"p","download_url_prefix":"https://cdn"})";
}

Result<StorageGetUploadConfigResponse> decode(const std::string& body) {
  return StorageGetUploadConfigResponse::decode(Data(body), JsonDecoder());
}

TEST(StorageGetUploadConfigRequest, IsAGetOfItsPathWithoutParametersOrParts) {
  const StorageGetUploadConfigRequest request;
  EXPECT_EQ(request.api(), "v3/storage/get_upload_config");
  EXPECT_EQ(request.methods(), std::vector<std::string>{"GET"});
  EXPECT_TRUE(request.mimeBodies().empty());
  EXPECT_TRUE(request.parseParamater(PlainEncoder()).empty());
}

TEST(StorageGetUploadConfigRequest, DecodesItsOwnResponse) {
  const auto response = StorageGetUploadConfigRequest().decodeResponse(
      Data(R"({"upload_token_map":{"avatar":)" + record("b") + "}}"), JsonDecoder());
  ASSERT_TRUE(response);
  const auto* config = dynamic_cast<const StorageGetUploadConfigResponse*>(response->get());
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->uploadTokenMap.size(), 1U);
}

TEST(StorageGetUploadConfigRequest, UndecodableBodyIsAnError) {
  EXPECT_FALSE(StorageGetUploadConfigRequest().decodeResponse(Data("{}"), JsonDecoder()));
}

TEST(StorageGetUploadConfigResponse, EachScopeHasItsRecord) {
  const auto response = decode(R"({"upload_token_map":{"avatar":)" + record("b1") +
                               R"(,"item image":)" + record("b2") + "}}");
  ASSERT_TRUE(response);
  ASSERT_EQ(response->uploadTokenMap.size(), 2U);
  EXPECT_EQ(response->uploadTokenMap.at("avatar").bucket, "b1");
  EXPECT_EQ(response->uploadTokenMap.at("item image").bucket, "b2");
  EXPECT_EQ(response->uploadTokenMap.at("avatar").expiration, Date{1700000000});
}

TEST(StorageGetUploadConfigResponse, EmptyMapDecodesToAnEmptyMap) {
  const auto response = decode(R"({"upload_token_map":{}})");
  ASSERT_TRUE(response);
  EXPECT_TRUE(response->uploadTokenMap.empty());
}

TEST(StorageGetUploadConfigResponse, BodyWithoutTheMapFails) {
  for (const char* body : {"{}", R"({"upload_token_map":null})", R"({"upload_token_map":[]})",
                           R"({"upload_token_map":"x"})", "[]", "null", "3", R"("text")"}) {
    const auto response = decode(body);
    ASSERT_FALSE(response) << body;
    EXPECT_NE(response.error().description.find("\"upload_token_map\""), std::string::npos);
  }
}

TEST(StorageGetUploadConfigResponse, BodyThatIsNoJsonFails) {
  EXPECT_FALSE(decode(""));
  EXPECT_FALSE(decode("<html>"));
  EXPECT_FALSE(decode(R"({"upload_token_map":{)"));
}

TEST(StorageGetUploadConfigResponse, OneBadRecordFailsTheWhole) {
  const auto response =
      decode(R"({"upload_token_map":{"avatar":)" + record("b") + R"(,"bad":{"bucket":"b"}}})");
  ASSERT_FALSE(response);
  EXPECT_NE(response.error().description.find("\"access_key_id\""), std::string::npos);
}

TEST(StorageGetUploadConfigResponse, UnreadableExpirationFailsTheWhole) {
  std::string body = R"({"upload_token_map":{"avatar":)" + record("b") + "}}";
  body.replace(body.find("1700000000"), 10, R"("tomorrow")");
  const auto response = decode(body);
  ASSERT_FALSE(response);
  EXPECT_NE(response.error().description.find("\"expiration\""), std::string::npos);
}

}  // namespace
}  // namespace qx
