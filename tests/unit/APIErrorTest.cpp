#include "platform/APIError.h"

#include <gtest/gtest.h>

#include "fakes/FakeMessageClients.h"

namespace qx {
namespace {

TEST(APIErrorCode, OneIsSuccessAndOneThousandIsInternalError) {
  EXPECT_EQ(apiErrorCodeFromRawValue(1), APIErrorCode::success);
  EXPECT_EQ(apiErrorCodeFromRawValue(1000), APIErrorCode::internalError);
}

TEST(APIErrorCode, AnyOtherNumberYieldsNothing) {
  for (const std::int64_t rawValue : {0, 2, -1, 999, 1001}) {
    EXPECT_EQ(apiErrorCodeFromRawValue(rawValue), std::nullopt) << rawValue;
  }
}

TEST(APIError, GivenMessageIsKept) {
  FakeMessageClients locale;
  locale.localise("INTERNAL_ERROR", "Something broke");
  EXPECT_EQ(APIError(APIErrorCode::internalError, "given", locale).message, "given");
  EXPECT_EQ(APIError(APIErrorCode::internalError, "", locale).message, "");
}

TEST(APIError, MissingMessageIsTheLocalesText) {
  FakeMessageClients locale;
  locale.localise("SUCCESS", "All well");
  locale.localise("INTERNAL_ERROR", "Something broke");
  EXPECT_EQ(APIError(APIErrorCode::success, std::nullopt, locale).message, "All well");
  EXPECT_EQ(APIError(APIErrorCode::internalError, std::nullopt, locale).message, "Something broke");
}

TEST(APIError, ObjectWithBothMembersDecodes) {
  const auto error = APIError::decode(Dictionary{{"code", 1000}, {"message", "down"}});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, APIErrorCode::internalError);
  EXPECT_EQ(error->message, "down");
}

TEST(APIError, MissingMistypedOrUnknownMemberIsNamed) {
  const std::vector<std::pair<Value, std::string>> rows = {
      {Dictionary{{"message", "down"}}, "\"code\""},
      {Dictionary{{"code", 2}, {"message", "down"}}, "\"code\""},
      {Dictionary{{"code", "1000"}, {"message", "down"}}, "\"code\""},
      {Dictionary{{"code", true}, {"message", "down"}}, "\"code\""},
      {Dictionary{{"code", 1000}}, "\"message\""},
      {Dictionary{{"code", 1000}, {"message", Value()}}, "\"message\""},
      {Value("down"), "not an object"},
  };
  for (const auto& [value, text] : rows) {
    const auto error = APIError::decode(value);
    ASSERT_FALSE(error);
    EXPECT_EQ(error.error().domain, "APIDecoder");
    EXPECT_NE(error.error().description.find(text), std::string::npos) << error.error().description;
  }
}

TEST(APIError, EncodingWritesTheBareCodeThenTheMessage) {
  FakeMessageClients locale;
  const OrderedMembers expected = {{"code", 1000}, {"message", "down"}};
  EXPECT_EQ(APIError(APIErrorCode::internalError, "down", locale).encode(), expected);
}

TEST(APIError, IsUsableAsAnErrorValue) {
  FakeMessageClients locale;
  EXPECT_EQ(APIError(APIErrorCode::internalError, "down", locale).asError(),
            (Error{"APIError", 1000, "down"}));
}

}  // namespace
}  // namespace qx
