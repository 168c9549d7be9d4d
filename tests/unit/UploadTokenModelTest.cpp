#include "Classes/UploadTokenModel.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/JsonDecoder.h"

namespace qx {
namespace {

const std::vector<std::string> kKeys = {
    "access_key_id", "access_key_secret", "security_token",     "expiration", "bucket",
    "region",        "authorized_path",   "download_url_prefix"};

Dictionary record() {
  return {
      {"access_key_id", "AKID"},
      {"access_key_secret", "shh-secret"},
      {"security_token", "shh-token"},
      {"expiration", 1700000000},
      {"bucket", "photos"},
      {"region", "eu-north-1"},
      {"authorized_path", "users/1"},
      {"download_url_prefix", "https://cdn.test"},
  };
}

Result<UploadTokenModel> decode(const Value& value) {
  return UploadTokenModel::decode(value, JsonDecoder());
}

TEST(UploadTokenModel, RecordOfEightMembersDecodes) {
  const auto model = decode(record());
  ASSERT_TRUE(model);
  EXPECT_EQ(model->accessKeyId, "AKID");
  EXPECT_EQ(model->accessKeySecret, "shh-secret");
  EXPECT_EQ(model->securityToken, "shh-token");
  EXPECT_EQ(model->expiration, Date{1700000000});
  EXPECT_EQ(model->bucket, "photos");
  EXPECT_EQ(model->region, "eu-north-1");
  EXPECT_EQ(model->authorizedPath, "users/1");
  EXPECT_EQ(model->downloadUrlPrefix, "https://cdn.test");
}

TEST(UploadTokenModel, FieldsAreGivenInTheOrderOfTheRecord) {
  const UploadTokenModel model{"AKID",   "shh-secret", "shh-token", Date{1700000000},
                               "photos", "eu-north-1", "users/1",   "https://cdn.test"};
  EXPECT_EQ(model, *decode(record()));
}

TEST(UploadTokenModel, UnknownMembersAreIgnored) {
  Dictionary more = record();
  more["endpoint"] = "https://elsewhere.test";
  EXPECT_TRUE(decode(more));
}

TEST(UploadTokenModel, EachMissingMemberIsNamed) {
  for (const std::string& key : kKeys) {
    Dictionary less = record();
    less.erase(key);
    const auto model = decode(less);
    ASSERT_FALSE(model) << key;
    EXPECT_EQ(model.error().domain, "APIDecoder");
    EXPECT_NE(model.error().description.find('"' + key + '"'), std::string::npos)
        << model.error().description;
  }
}

TEST(UploadTokenModel, EachMistypedMemberIsNamed) {
  for (const std::string& key : kKeys) {
    for (const Value& wrong : {Value(), Value(true), Value(Dictionary{})}) {
      Dictionary mistyped = record();
      mistyped[key] = wrong;
      const auto model = decode(mistyped);
      ASSERT_FALSE(model) << key;
      EXPECT_NE(model.error().description.find('"' + key + '"'), std::string::npos)
          << model.error().description;
    }
  }
}

TEST(UploadTokenModel, ExpirationThatIsNoDateFails) {
  Dictionary mistyped = record();
  mistyped["expiration"] = "tomorrow";
  EXPECT_FALSE(decode(mistyped));
}

TEST(UploadTokenModel, ErrorNeverHoldsACredential) {
  for (const std::string& key : kKeys) {
    Dictionary less = record();
    less.erase(key);
    EXPECT_EQ(decode(less).error().description.find("shh"), std::string::npos) << key;
  }
}

TEST(UploadTokenModel, ValueThatIsNoObjectFails) {
  for (const Value& value : {Value(), Value("text"), Value(Array{}), Value(1)}) {
    EXPECT_FALSE(decode(value));
  }
}

TEST(UploadTokenModel, EncodingWritesAllMembersInOrder) {
  const OrderedMembers expected = {
      {"access_key_id", "AKID"},
      {"access_key_secret", "shh-secret"},
      {"security_token", "shh-token"},
      {"expiration", Date{1700000000}},
      {"bucket", "photos"},
      {"region", "eu-north-1"},
      {"authorized_path", "users/1"},
      {"download_url_prefix", "https://cdn.test"},
  };
  EXPECT_EQ(decode(record())->encode(), expected);
}

}  // namespace
}  // namespace qx
