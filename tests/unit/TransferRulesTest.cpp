// The decisions of a transfer after each answer, as a table: no socket, no clock, no waiting.
#include "s3/TransferRules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace qx {
namespace {

using Step = TransferDecision::Step;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr double kNow = 1795219560;  // 2026-11-21T00:06:00Z

class TransferRulesTest : public ::testing::Test {
 protected:
  static HttpAnswer status(int status, HTTPHeaders headers = {}, std::string body = "") {
    HttpAnswer answer;
    answer.begun = true;
    answer.framed = true;
    answer.status = status;
    answer.headers = std::move(headers);
    answer.body = std::move(body);
    return answer;
  }
  static HttpAnswer failure(HttpFailure failure, bool begun = false) {
    HttpAnswer answer;
    answer.failure = failure;
    answer.begun = begun;
    answer.error = Error{"Transport", kTransportErrorBase + 1, "why"};
    return answer;
  }
  static HttpAnswer after(double elapsed, double standstill, HttpAnswer answer) {
    answer.elapsedSeconds = elapsed;
    answer.standstillSeconds = standstill;
    return answer;
  }
  TransferState begin() const { return beginningOf(target_, "eu-north-1", attempts_); }
  TransferDecision after(const TransferState& state, const HttpAnswer& answer) const {
    return decide(target_, state, {kNow, offset_}, answer, {"the-long-secret-of-this-store"});
  }
  TransferDecision after(const HttpAnswer& answer) const { return after(begin(), answer); }

  TransferTarget target_ = {{"https", "s3.example.com", {}}, "bucket", "k", false, 30, false};
  int attempts_ = 1;
  double offset_ = 0;
};

TEST_F(TransferRulesTest, TransferBeginsAtTheBucketsAddressWithAllItsTime) {
  const TransferState state = begin();
  EXPECT_EQ(state.address.url(), "https://bucket.s3.example.com/k");
  EXPECT_EQ(state.region, "eu-north-1");
  EXPECT_EQ(state.attemptsLeft, 1);
  EXPECT_EQ(state.secondsLeft, 30);
}

TEST_F(TransferRulesTest, StatusDecides) {
  const std::vector<std::pair<std::vector<int>, Step>> rows = {
      {{200}, Step::succeeded},
      {{201, 202, 203, 204, 206, 226, 299}, Step::failed},
      {{300, 303, 304}, Step::failed},
      {{429, 500, 502, 503, 504}, Step::again},
      {{400, 401, 403, 404, 405, 409, 411, 412, 416, 501, 505, 507}, Step::failed},
  };
  for (const auto& [statuses, step] : rows) {
    for (const int code : statuses) EXPECT_EQ(after(status(code)).step, step) << code;
  }
}

TEST_F(TransferRulesTest, FailureToGetAnAnswerDecides) {
  EXPECT_EQ(after(failure(HttpFailure::connection)).step, Step::again);
  EXPECT_EQ(after(failure(HttpFailure::connection, true)).step, Step::again);
  EXPECT_EQ(after(failure(HttpFailure::timeout)).step, Step::again);
  EXPECT_EQ(after(failure(HttpFailure::timeout, true)).step, Step::failed);
  EXPECT_EQ(after(failure(HttpFailure::other)).step, Step::failed);
  EXPECT_EQ(after(failure(HttpFailure::other)).error->description, "why");
}

TEST_F(TransferRulesTest, ErrorHasTheFamilyOfItsStatusAndNoSecret) {
  const std::vector<std::pair<int, std::int64_t>> rows = {
      {206, 0}, {304, 1}, {404, 2}, {501, 3}, {600, 0}};
  for (const auto& [code, family] : rows) {
    const TransferDecision decision = after(
        status(code, {},
               "<Error><Code>No</Code><Message>the-long-secret-of-this-store</Message></Error>"));
    EXPECT_EQ(decision.error->domain, "ObjectStore");
    EXPECT_EQ(decision.error->code, family) << code;
    EXPECT_EQ(decision.error->description, "No: ... (HTTP " + std::to_string(code) + ")");
  }
}

// ---- Attempts, pauses and time

TEST_F(TransferRulesTest, AttemptsAreUsedUp) {
  attempts_ = 2;
  TransferDecision decision = after(status(503));
  EXPECT_EQ(decision.state.attemptsLeft, 1);
  decision = after(decision.state, failure(HttpFailure::connection));
  EXPECT_EQ(decision.state.attemptsLeft, 0);
  EXPECT_EQ(after(decision.state, status(503)).step, Step::failed);
}

TEST_F(TransferRulesTest, PausesDoubleUpToTwoSeconds) {
  attempts_ = 8;
  std::vector<double> pauses;
  TransferState state = begin();
  for (int i = 0; i < 7; ++i) {
    TransferDecision decision =
        after(state, i % 2 == 0 ? status(500) : failure(HttpFailure::connection));
    ASSERT_EQ(decision.step, Step::again);
    pauses.push_back(decision.delaySeconds);
    state = decision.state;
  }
  EXPECT_THAT(pauses, ElementsAre(0.1, 0.2, 0.4, 0.8, 1.6, 2, 2));
}

TEST_F(TransferRulesTest, RetryAfterTakesThePlaceOfThePause) {
  const std::vector<std::pair<std::string, double>> rows = {
      {"0", 0},
      {"7", 7},
      // The date of the store's clock, which is an hour ahead of ours.
      {"Sat, 21 Nov 2026 01:06:05 GMT", 5},
      {"Saturday, 21-Nov-26 01:06:05 GMT", 5},
      {"Sat Nov 21 01:06:05 2026", 5},
      {"Sat, 21 Nov 2026 01:05:00 GMT", 0},
      {"-1", 0.1},
      {"1.5", 0.1},
      {"soon", 0.1},
      {"", 0.1},
  };
  offset_ = 3600;
  for (const auto& [text, pause] : rows) {
    const TransferDecision decision = after(status(429, {{"retry-after", text}}));
    EXPECT_EQ(decision.step, Step::again) << text;
    EXPECT_EQ(decision.delaySeconds, pause) << text;
  }
}

TEST_F(TransferRulesTest, RetryAfterBeyondTheTimeThatIsLeftIsAFailure) {
  EXPECT_EQ(after(status(503, {{"retry-after", "29"}})).step, Step::again);
  EXPECT_EQ(after(status(503, {{"retry-after", "30"}})).step, Step::failed);
  EXPECT_EQ(after(after(2, 2, status(503, {{"retry-after", "28"}}))).step, Step::failed);
}

TEST_F(TransferRulesTest, TimeOfAttemptsAndPausesIsUsedUp) {
  const TransferDecision decision = after(after(12, 3, status(503, {{"retry-after", "4"}})));
  EXPECT_EQ(decision.state.secondsLeft, 14);
  EXPECT_EQ(after(after(30, 3, failure(HttpFailure::connection))).step, Step::failed);
  EXPECT_EQ(after(after(30, 3, status(307, {{"location", "/x"}}))).step, Step::failed);
}

TEST_F(TransferRulesTest, OnlyStandstillIsUsedUpWhenOnlyItCounts) {
  target_.countsStandstillOnly = true;
  // The request has taken 100 seconds, and nothing moved in the last 3 of them.
  TransferDecision decision = after(after(100, 3, status(503, {{"retry-after", "4"}})));
  ASSERT_EQ(decision.step, Step::again);
  EXPECT_EQ(decision.state.secondsLeft, 23);
  // After that nothing moves at all.
  decision = after(decision.state, after(5, 5, status(307, {{"location", "/x"}})));
  EXPECT_EQ(decision.state.secondsLeft, 18);
}

// ---- Redirects

TEST_F(TransferRulesTest, RedirectWithinTheStoreIsFollowedWithoutUsingAnAttempt) {
  attempts_ = 0;
  for (const int code : {301, 302, 307, 308}) {
    const TransferDecision decision =
        after(status(code, {{"location", "https://bucket.s3.eu-west-3.example.com/k"},
                            {"x-amz-bucket-region", "eu-west-3"}}));
    ASSERT_EQ(decision.step, Step::again) << code;
    EXPECT_EQ(decision.delaySeconds, 0);
    EXPECT_EQ(decision.state.address.url(), "https://bucket.s3.eu-west-3.example.com/k");
    EXPECT_EQ(decision.state.region, "eu-west-3");
  }
}

TEST_F(TransferRulesTest, EndpointElementIsARedirect) {
  const TransferDecision decision =
      after(status(301, {}, "<Error><Endpoint>bucket.s3.eu-west-3.example.com</Endpoint></Error>"));
  ASSERT_EQ(decision.step, Step::again);
  EXPECT_EQ(decision.state.address.url(), "https://bucket.s3.eu-west-3.example.com/k");
  EXPECT_EQ(decision.state.region, "eu-north-1");
}

TEST_F(TransferRulesTest, RedirectElsewhereIsAFailure) {
  for (const char* to : {"https://evil.com/k", "http://bucket.s3.example.com/k", "", "x"}) {
    const TransferDecision decision = after(status(307, {{"location", to}}));
    EXPECT_EQ(decision.step, Step::failed) << to;
    EXPECT_EQ(decision.error->code, 1);
  }
  EXPECT_EQ(after(status(301, {}, "<Error><Endpoint>evil.com</Endpoint></Error>")).step,
            Step::failed);
}

TEST_F(TransferRulesTest, RedirectFromTlsBackToPlainHttpIsAFailureAfterAnUpgradeAsWell) {
  target_.endpoint.scheme = "http";
  const TransferDecision upgraded =
      after(status(307, {{"location", "https://s3.example.com/bucket/k"}}));
  ASSERT_EQ(upgraded.step, Step::again);
  EXPECT_EQ(upgraded.state.address.scheme, "https");
  EXPECT_EQ(after(upgraded.state, status(307, {{"location", "http://s3.example.com/k"}})).step,
            Step::failed);
}

TEST_F(TransferRulesTest, FourthRedirectIsAFailure) {
  TransferState state = begin();
  for (int i = 0; i < 3; ++i) {
    const TransferDecision decision = after(state, status(307, {{"location", "/x"}}));
    ASSERT_EQ(decision.step, Step::again);
    state = decision.state;
  }
  EXPECT_EQ(after(state, status(307, {{"location", "/x"}})).step, Step::failed);
}

// ---- The clock

HttpAnswer skewed(const std::string& date) {
  HttpAnswer answer;
  answer.begun = true;
  answer.status = 403;
  answer.headers = {{"date", date}};
  answer.body = "<Error><Code>RequestTimeTooSkewed</Code></Error>";
  return answer;
}

TEST_F(TransferRulesTest, RefusedClockIsCorrectedOnceWithoutUsingAnAttempt) {
  attempts_ = 0;
  const TransferDecision decision = after(skewed("Sat, 21 Nov 2026 01:06:00 GMT"));
  ASSERT_EQ(decision.step, Step::again);
  EXPECT_EQ(decision.learnedOffset, 3600);
  EXPECT_EQ(decision.delaySeconds, 0);
  EXPECT_EQ(after(decision.state, skewed("Sat, 21 Nov 2026 01:06:00 GMT")).step, Step::failed);
}

TEST_F(TransferRulesTest, ClockIsBelievedUpToSevenDays) {
  EXPECT_EQ(after(skewed("Sat, 28 Nov 2026 00:06:00 GMT")).learnedOffset, 604800);
  EXPECT_EQ(after(skewed("Sat, 14 Nov 2026 00:06:00 GMT")).learnedOffset, -604800);
  for (const char* date : {"Sat, 28 Nov 2026 00:06:01 GMT", "Sat, 14 Nov 2026 00:05:59 GMT",
                           "Thu, 01 Jan 1970 00:00:00 GMT", "yesterday", ""}) {
    const TransferDecision decision = after(skewed(date));
    EXPECT_EQ(decision.step, Step::failed) << date;
    EXPECT_EQ(decision.learnedOffset, std::nullopt);
    EXPECT_THAT(decision.error->description, StartsWith("RequestTimeTooSkewed"));
  }
}

// ---- Downloads

TEST_F(TransferRulesTest, DownloadNeedsACertainEnd) {
  target_.isDownload = true;
  HttpAnswer answer = status(200);
  EXPECT_EQ(after(answer).step, Step::succeeded);
  answer.framed = false;
  EXPECT_EQ(after(answer).step, Step::failed);
  EXPECT_THAT(after(answer).error->description, HasSubstr("where the object ends"));
  target_.isDownload = false;
  EXPECT_EQ(after(answer).step, Step::succeeded);
}

TEST_F(TransferRulesTest, ETagThatIsAnMd5IsToBeCompared) {
  const std::string md5 = "356c9ee60e9da05301adc3bd96f6b383";
  const std::string quoted = '"' + md5 + '"';
  const std::vector<std::pair<HTTPHeaders, std::optional<std::string>>> rows = {
      {{{"etag", quoted}}, md5},
      {{{"etag", md5}}, md5},
      {{{"etag", quoted}, {"x-amz-server-side-encryption", "AES256"}}, md5},
      {{}, std::nullopt},
      {{{"etag", '"' + md5 + "-2\""}}, std::nullopt},
      {{{"etag", "\"abc\""}}, std::nullopt},
      {{{"etag", "W/" + quoted}}, std::nullopt},
      {{{"etag", quoted}, {"x-amz-server-side-encryption", "aws:kms"}}, std::nullopt},
      {{{"etag", quoted}, {"x-amz-server-side-encryption", "aws:kms:dsse"}}, std::nullopt},
      {{{"etag", quoted}, {"x-amz-server-side-encryption-customer-algorithm", "AES256"}},
       std::nullopt},
  };
  target_.isDownload = true;
  for (const auto& [headers, expected] : rows) {
    EXPECT_EQ(after(status(200, headers)).md5, expected) << headers.size();
  }
  target_.bucket = "bucket--zone--x-s3";
  EXPECT_EQ(after(status(200, {{"etag", quoted}})).md5, std::nullopt);
}

}  // namespace
}  // namespace qx
