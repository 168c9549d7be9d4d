// The parts of the signature of a request to the store: the region's name as given, the session
// token if there is one, and the time of that store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

using ::testing::HasSubstr;

class StoreSigningTest : public TransferFixture {
 protected:
  static std::string authorization(const SeenRequest& request) {
    return request.headers.at("authorization");
  }
};

TEST_F(StoreSigningTest, RegionOutsideTheTableIsSignedAsItIsNamed) {
  for (const char* name : {"auto", "garage", "me-south-1"}) {
    region_ = name;
    ScriptedServer server({Turn()});
    EXPECT_EQ(upload(server.url()), std::nullopt);
    EXPECT_THAT(
        authorization(server.requests()[0]),
        HasSubstr("Credential=AKIDOFUSERFORTYTWO/20261121/" + region_ + "/s3/aws4_request, "));
  }
}

TEST_F(StoreSigningTest, RegionOutsideTheTableThatARedirectNamesIsSignedAsWell) {
  ScriptedServer server(
      {answerWith(307, "", "Location: /elsewhere\r\nx-amz-bucket-region: garage\r\n"), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_THAT(authorization(server.requests()[1]), HasSubstr("/20261121/garage/s3/"));
}

TEST_F(StoreSigningTest, RegionOfARedirectThatCannotBeSignedIsIgnored) {
  ScriptedServer server(
      {answerWith(307, "", "Location: /elsewhere\r\nx-amz-bucket-region: a/b\r\n"), Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  EXPECT_THAT(authorization(server.requests()[1]), HasSubstr("/20261121/eu-north-1/s3/"));
}

TEST_F(StoreSigningTest, EmptySessionTokenIsNeitherSentNorSigned) {
  token_.clear();
  ScriptedServer server({Turn()});
  EXPECT_EQ(upload(server.url()), std::nullopt);
  const SeenRequest request = server.requests()[0];
  EXPECT_EQ(request.headers.count("x-amz-security-token"), 0u);
  EXPECT_THAT(authorization(request),
              HasSubstr("SignedHeaders=host;x-amz-content-sha256;x-amz-date, "));
}

// ---- The store's clock

/// The refusal of a store whose clock shows this time.
Turn skewed(const std::string& date) {
  return errorRecord(403, "RequestTimeTooSkewed", "Date: " + date + "\r\n");
}

TEST_F(StoreSigningTest, ClockOfOneStoreIsNotThatOfAnother) {
  ScriptedServer ahead({skewed("Sat, 21 Nov 2026 01:06:00 GMT"), Turn()});
  ScriptedServer right({Turn()});
  EXPECT_EQ(upload(ahead.url()), std::nullopt);
  EXPECT_EQ(upload(right.url()), std::nullopt);
  EXPECT_EQ(upload(ahead.url()), std::nullopt);
  EXPECT_EQ(ahead.requests()[1].headers.at("x-amz-date"), "20261121T010600Z");
  EXPECT_EQ(right.requests()[0].headers.at("x-amz-date"), "20261121T000600Z");
  EXPECT_EQ(ahead.requests()[2].headers.at("x-amz-date"), "20261121T010600Z");
}

TEST_F(StoreSigningTest, ClockThatIsDaysOffIsFollowedInBothDirections) {
  for (const auto& [date, time] : std::vector<std::pair<std::string, std::string>>{
           {"Sat, 28 Nov 2026 00:06:00 GMT", "20261128T000600Z"},
           {"Sat, 14 Nov 2026 00:06:00 GMT", "20261114T000600Z"}}) {
    ScriptedServer server({skewed(date), Turn()});
    EXPECT_EQ(upload(server.url()), std::nullopt);
    EXPECT_EQ(server.requests()[1].headers.at("x-amz-date"), time);
  }
}

TEST_F(StoreSigningTest, ClockThatNoClockIsOffByIsTheStoresErrorAndNothingIsLearned) {
  for (const char* date : {"Sat, 28 Nov 2026 00:06:01 GMT", "Sat, 14 Nov 2026 00:05:59 GMT",
                           "Thu, 01 Jan 1970 00:00:00 GMT", "Fri, 21 Nov 2098 00:06:00 GMT"}) {
    ScriptedServer server({skewed(date), Turn()});
    const auto error = upload(server.url());
    ASSERT_TRUE(error) << date;
    EXPECT_THAT(error->description, HasSubstr("RequestTimeTooSkewed"));
    EXPECT_EQ(server.requests().size(), 1u) << date;
    EXPECT_EQ(upload(server.url()), std::nullopt);
    EXPECT_EQ(server.requests()[1].headers.at("x-amz-date"), "20261121T000600Z");
  }
}

}  // namespace
}  // namespace qx
