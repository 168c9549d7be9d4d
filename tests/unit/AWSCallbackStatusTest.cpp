#include "Classes/AWSCallbackStatus.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace qx {
namespace {

const std::vector<std::pair<std::int64_t, AWSErrorCode>> kRawValues = {
    {0, AWSErrorCode::unknown},           {1, AWSErrorCode::redirection},
    {2, AWSErrorCode::clientError},       {3, AWSErrorCode::serverError},
    {4, AWSErrorCode::localFileNotFound}, {100, AWSErrorCode::noConfigured},
    {101, AWSErrorCode::keyNotMatch},     {102, AWSErrorCode::missParamters},
};

TEST(AWSErrorCode, EightRawValuesYieldTheirCases) {
  for (const auto& [rawValue, code] : kRawValues) {
    EXPECT_EQ(errorCodeFromRawValue(rawValue), code) << rawValue;
    EXPECT_EQ(static_cast<std::int64_t>(code), rawValue);
  }
}

TEST(AWSErrorCode, AnyOtherNumberYieldsNothing) {
  for (const std::int64_t rawValue :
       {std::int64_t{-1}, std::int64_t{5}, std::int64_t{99}, std::int64_t{103}, std::int64_t{403},
        std::int64_t{1} << 32, INT64_MIN, INT64_MAX}) {
    EXPECT_EQ(errorCodeFromRawValue(rawValue), std::nullopt) << rawValue;
  }
}

TEST(AWSCallbackStatus, FailureCarriesCodeAndMessage) {
  const auto status = AWSCallbackStatus::failure(AWSErrorCode::keyNotMatch, "no such key");
  EXPECT_FALSE(status.succeeded());
  EXPECT_EQ(status.code(), AWSErrorCode::keyNotMatch);
  EXPECT_EQ(status.message(), "no such key");
}

TEST(AWSCallbackStatus, EqualityComparesCodeAndMessage) {
  const auto failure = AWSCallbackStatus::failure(AWSErrorCode::unknown, "a");
  EXPECT_TRUE(AWSCallbackStatus::success().succeeded());
  EXPECT_EQ(AWSCallbackStatus::success(), AWSCallbackStatus::success());
  EXPECT_FALSE(AWSCallbackStatus::success() == failure);
  EXPECT_FALSE(failure == AWSCallbackStatus::failure(AWSErrorCode::unknown, "b"));
  EXPECT_FALSE(failure == AWSCallbackStatus::failure(AWSErrorCode::serverError, "a"));
}

TEST(UploaderError, HasTheDomainTheRawValueAndTheMessage) {
  const Error error = uploaderError(AWSErrorCode::noConfigured, "[Error] not found config");
  EXPECT_EQ(error, (Error{"AWSUploaderError", 100, "[Error] not found config"}));
}

}  // namespace
}  // namespace qx
