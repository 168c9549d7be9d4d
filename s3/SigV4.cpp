#include "s3/SigV4.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "platform/Hex.h"

namespace qx {
namespace {

constexpr std::string_view kAlgorithm = "AWS4-HMAC-SHA256";
constexpr std::size_t kMostKeys = 256;

/// Appends the value without blanks at its ends, and with one blank for each run of blanks.
void appendTrimmed(std::string& text, std::string_view value) {
  bool blank = false;
  bool begun = false;
  for (const char c : value) {
    if (c == ' ' || c == '\t') {
      blank = begun;
      continue;
    }
    if (blank) text += ' ';
    text += c;
    blank = false;
    begun = true;
  }
}

}  // namespace

std::string sigV4Time(std::int64_t secondsSince1970) {
  using namespace std::chrono;
  const sys_seconds time{seconds{secondsSince1970}};
  const sys_days days = floor<std::chrono::days>(time);
  const year_month_day date{days};
  const hh_mm_ss clock{time - days};
  char text[32];
  std::snprintf(text, sizeof text, "%04d%02u%02uT%02d%02d%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

std::string SigV4Signer::authorization(const SigV4Request& request, const std::string& time,
                                       std::string_view accessKey, std::string_view secretKey) {
  HTTPHeaders headers = request.headers;
  std::stable_sort(headers.begin(), headers.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string canonical;
  canonical.reserve(1024);
  canonical.append(request.method).append("\n");
  canonical.append(request.path).append("\n");
  canonical.append(request.query).append("\n");
  std::string signedHeaders;
  for (std::size_t i = 0; i < headers.size(); ++i) {
    const auto& [name, value] = headers[i];
    if (i > 0 && headers[i - 1].first == name) {
      // The values of equal names stand on one line.
      canonical.back() = ',';
    } else {
      canonical.append(name).append(":");
      signedHeaders.append(signedHeaders.empty() ? "" : ";").append(name);
    }
    appendTrimmed(canonical, value);
    canonical += '\n';
  }
  canonical.append("\n").append(signedHeaders).append("\n").append(request.payloadHash);

  const std::string_view date = std::string_view(time).substr(0, 8);
  std::string scope;
  scope.append(date).append("/").append(request.region).append("/").append(request.service);
  scope.append("/aws4_request");
  std::string toSign(kAlgorithm);
  toSign.append("\n").append(time).append("\n").append(scope).append("\n");
  toSign.append(hex(digests_.sha256(canonical)));
  const Sha256Digest key = signingKey(secretKey, date, request.region, request.service);
  std::string value(kAlgorithm);
  value.append(" Credential=").append(accessKey).append("/").append(scope);
  value.append(", SignedHeaders=").append(signedHeaders);
  value.append(", Signature=").append(hex(digests_.hmacSha256(bytesOf(key), toSign)));
  return value;
}

Sha256Digest SigV4Signer::signingKey(std::string_view secretKey, std::string_view date,
                                     std::string_view region, std::string_view service) {
  std::string name(date);
  name.append("/").append(region).append("/").append(service).append("/").append(secretKey);
  {
    MutexLock lock(mutex_);
    const auto known = keys_.find(name);
    if (known != keys_.end()) return known->second;
  }
  const Sha256Digest dateKey = digests_.hmacSha256("AWS4" + std::string(secretKey), date);
  const Sha256Digest regionKey = digests_.hmacSha256(bytesOf(dateKey), region);
  const Sha256Digest serviceKey = digests_.hmacSha256(bytesOf(regionKey), service);
  const Sha256Digest key = digests_.hmacSha256(bytesOf(serviceKey), "aws4_request");
  MutexLock lock(mutex_);
  if (keys_.size() >= kMostKeys) keys_.clear();
  keys_.emplace(std::move(name), key);
  return key;
}

}  // namespace qx
