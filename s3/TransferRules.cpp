#include "s3/TransferRules.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "http/HttpDate.h"
#include "platform/AWSRegion.h"
#include "s3/StoreError.h"

namespace qx {
namespace {

using Step = TransferDecision::Step;

constexpr int kMaxRedirects = 3;
constexpr double kFirstBackoffSeconds = 0.1;
constexpr double kLongestBackoffSeconds = 2;

bool isRedirect(int status) {
  return status == 301 || status == 302 || status == 307 || status == 308;
}

bool isPassing(int status) {
  return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

/// The MD5 of the object in lower-case hexadecimal, from the ETag, or nothing. By the S3 API
/// reference an ETag is the MD5 of the bytes unless the object came in parts (then it has a "-"),
/// was encrypted with a key that is not the store's own, or lies in a directory bucket ("--x-s3").
std::optional<std::string> md5Of(const HttpAnswer& answer, std::string_view bucket) {
  std::string_view tag = answer.header("etag").value_or(std::string_view());
  if (tag.size() >= 2 && tag.front() == '"' && tag.back() == '"') {
    tag = tag.substr(1, tag.size() - 2);
  }
  const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  if (tag.size() != 32 || !std::ranges::all_of(tag, isDigit)) return std::nullopt;
  const auto encryption = answer.header("x-amz-server-side-encryption");
  if ((encryption && encryption->starts_with("aws:kms")) || bucket.ends_with("--x-s3") ||
      answer.header("x-amz-server-side-encryption-customer-algorithm")) {
    return std::nullopt;
  }
  return std::string(tag);
}

TransferDecision failed(Error error) {
  TransferDecision decision;
  decision.error = std::move(error);
  return decision;
}

TransferDecision again(TransferState state, double delaySeconds = 0) {
  TransferDecision decision;
  decision.step = Step::again;
  decision.state = std::move(state);
  decision.delaySeconds = delaySeconds;
  return decision;
}

TransferDecision succeeded(const TransferTarget& target, const HttpAnswer& answer) {
  TransferDecision decision;
  if (target.isDownload) {
    if (!answer.framed) {
      return failed(
          {"ObjectStore", 0, "the store's answer does not say for certain where the object ends"});
    }
    decision.md5 = md5Of(answer, target.bucket);
  }
  decision.step = Step::succeeded;
  return decision;
}

double secondsLeftAfter(const TransferTarget& target, double secondsLeft,
                        const HttpAnswer& answer) {
  const bool moved = answer.standstillSeconds < answer.elapsedSeconds;
  if (target.countsStandstillOnly && moved) {
    return target.timeoutSeconds - answer.standstillSeconds;
  }
  return secondsLeft - answer.elapsedSeconds;
}

/// A further attempt after a pause. Nothing when the attempts or the time are used up.
std::optional<TransferDecision> furtherAttempt(TransferState state, double delaySeconds) {
  if (state.attemptsLeft <= 0 || delaySeconds >= state.secondsLeft) return std::nullopt;
  --state.attemptsLeft;
  state.secondsLeft -= delaySeconds;
  return again(std::move(state), delaySeconds);
}

/// Twice the previous pause, up to a limit.
double nextBackoff(TransferState& state) {
  const double before = state.backoffSeconds;
  state.backoffSeconds =
      before == 0 ? kFirstBackoffSeconds : std::min(2 * before, kLongestBackoffSeconds);
  return state.backoffSeconds;
}

/// The pause that the store asks for, in seconds or as a date of its clock, or else the back-off.
double retryDelay(TransferState& state, const TransferTime& time, const HttpAnswer& answer) {
  const auto text = answer.header("retry-after");
  if (!text) return nextBackoff(state);
  int seconds = 0;
  const char* end = text->data() + text->size();
  const auto read = std::from_chars(text->data(), end, seconds);
  if (read.ec == std::errc() && read.ptr == end && seconds >= 0) return seconds;
  if (const auto date = parseHttpDate(*text)) {
    return std::max(0.0, *date - (time.now + time.storeOffset));
  }
  return nextBackoff(state);
}

std::optional<TransferDecision> redirected(const TransferTarget& target, TransferState state,
                                           const HttpAnswer& answer) {
  if (state.redirects >= kMaxRedirects || state.secondsLeft <= 0) return std::nullopt;
  std::string to(answer.header("location").value_or(std::string_view()));
  if (to.empty()) {
    // S3 names the host of a bucket that lives elsewhere in this element.
    const std::string host = xmlElementText(answer.body, "Endpoint");
    if (host.empty()) return std::nullopt;
    to = state.address.scheme + "://" + host;
  }
  auto address =
      redirectedAddress(target.endpoint, state.address, target.bucket, target.encodedKey, to);
  if (!address) return std::nullopt;
  ++state.redirects;
  state.address = std::move(*address);
  const std::string_view region = answer.header("x-amz-bucket-region").value_or(std::string_view());
  if (canSignRegion(region)) state.region = region;
  return again(std::move(state));
}

std::optional<TransferDecision> clockCorrected(TransferState state, const TransferTime& time,
                                               const HttpAnswer& answer) {
  if (state.clockCorrected || answer.status != 403 || state.secondsLeft <= 0) return std::nullopt;
  if (xmlElementText(answer.body, "Code") != "RequestTimeTooSkewed") return std::nullopt;
  const auto text = answer.header("date");
  const auto date = text ? parseHttpDate(*text) : std::nullopt;
  if (!date || std::abs(*date - time.now) > kLargestClockOffsetSeconds) return std::nullopt;
  state.clockCorrected = true;
  TransferDecision decision = again(std::move(state));
  decision.learnedOffset = *date - time.now;
  return decision;
}

}  // namespace

TransferState beginningOf(const TransferTarget& target, std::string region, int attempts) {
  TransferState state;
  state.address = addressOf(target.endpoint, target.bucket, target.encodedKey);
  state.region = std::move(region);
  state.attemptsLeft = attempts;
  state.secondsLeft = target.timeoutSeconds;
  return state;
}

TransferDecision decide(const TransferTarget& target, const TransferState& state,
                        const TransferTime& time, const HttpAnswer& answer,
                        const std::vector<std::string_view>& secrets) {
  TransferState next = state;
  next.secondsLeft = secondsLeftAfter(target, state.secondsLeft, answer);
  if (answer.error) {
    const bool curable = answer.failure == HttpFailure::connection ||
                         (answer.failure == HttpFailure::timeout && !answer.begun);
    if (curable) {
      const double delay = nextBackoff(next);
      if (auto decision = furtherAttempt(std::move(next), delay)) return *decision;
    }
    return failed(*answer.error);
  }
  // A 206 holds a part of an object, and the store promises nothing with any other 2xx.
  if (answer.status == 200) return succeeded(target, answer);
  if (isRedirect(answer.status)) {
    if (auto decision = redirected(target, next, answer)) return *decision;
  }
  if (isPassing(answer.status)) {
    TransferState paused = next;
    const double delay = retryDelay(paused, time, answer);
    if (auto decision = furtherAttempt(std::move(paused), delay)) return *decision;
  }
  if (auto decision = clockCorrected(std::move(next), time, answer)) return *decision;
  return failed(storeError(answer, secrets));
}

}  // namespace qx
