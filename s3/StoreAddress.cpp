#include "s3/StoreAddress.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "http/Headers.h"
#include "http/IpAddress.h"
#include "http/UriEncoding.h"
#include "platform/AWSRegion.h"
#include "platform/Url.h"

namespace qx {
namespace {

bool isLowerAlnum(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool isHostName(std::string_view host) {
  return !host.empty() && host.size() <= 253 && host.find("..") == std::string_view::npos &&
         host.front() != '.' && std::all_of(host.begin(), host.end(), [](char c) {
           return isLowerAlnum(c) || c == '-' || c == '.' || c == '_';
         });
}

/// True when the bucket can be a part of a host name.
bool isDnsBucket(const std::string& bucket) {
  return bucket.size() >= 3 && bucket.size() <= 63 && isLowerAlnum(bucket.front()) &&
         isLowerAlnum(bucket.back()) && isHostName(bucket) &&
         bucket.find('_') == std::string::npos && !isIpv4Address(bucket);
}

/// True when `host` is the endpoint's name for one of the store's regions: "s3.eu-west-1.x.com",
/// "s3-eu-west-1.x.com" or "s3.dualstack.eu-west-1.x.com" for the endpoint "s3.x.com".
bool isRegionalName(const std::string& endpoint, const std::string& host) {
  const std::size_t dot = endpoint.find('.');
  if (dot == std::string::npos || endpoint.find('.', dot + 1) == std::string::npos) return false;
  const std::string first = endpoint.substr(0, dot);
  const std::string rest = endpoint.substr(dot);
  constexpr std::array<std::string_view, 3> kForms = {".", "-", ".dualstack."};
  return std::any_of(kAWSRegions.begin(), kAWSRegions.end(), [&](const auto& region) {
    return std::any_of(kForms.begin(), kForms.end(), [&](std::string_view form) {
      return host == first + std::string(form) + std::string(region.first) + rest;
    });
  });
}

bool isSameStore(const StoreEndpoint& endpoint, const std::string& bucket,
                 const std::string& host) {
  if (host == endpoint.host) return true;
  if (endpoint.isLiteral()) return false;
  if (host.ends_with("." + endpoint.host)) return true;
  const std::string prefix = bucket + ".";
  return isRegionalName(endpoint.host, host) ||
         (host.starts_with(prefix) && isRegionalName(endpoint.host, host.substr(prefix.size())));
}

int defaultPort(const std::string& scheme) {
  return scheme == "https" ? 443 : 80;
}

}  // namespace

std::optional<StoreEndpoint> StoreEndpoint::parse(std::string_view url) {
  StoreEndpoint endpoint;
  const auto [scheme, authority, rest] = AddressParts(url);
  endpoint.scheme = lowered(scheme);
  if (endpoint.scheme != "http" && endpoint.scheme != "https") return std::nullopt;
  if (!rest.empty() && rest != "/") return std::nullopt;
  std::string_view port;
  if (authority.starts_with('[')) {
    const std::size_t close = authority.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    if (!isIpv6Address(authority.substr(1, close - 1))) return std::nullopt;
    endpoint.host = lowered(authority.substr(0, close + 1));
    port = authority.substr(close + 1);
  } else {
    const std::size_t colon = authority.find(':');
    endpoint.host = lowered(authority.substr(0, colon));
    if (!isHostName(endpoint.host)) return std::nullopt;
    if (colon != std::string_view::npos) port = authority.substr(colon);
  }
  if (!port.empty()) {
    int number = 0;
    const char* end = port.data() + port.size();
    const auto read = std::from_chars(port.data() + 1, end, number);
    if (port.front() != ':' || read.ec != std::errc() || read.ptr != end || number < 1 ||
        number > 65535) {
      return std::nullopt;
    }
    if (number != defaultPort(endpoint.scheme)) endpoint.port = number;
  }
  return endpoint;
}

bool StoreEndpoint::isLiteral() const {
  return host.starts_with('[') || isIpv4Address(host) || host == "localhost" ||
         host.ends_with(".localhost");
}

std::string StoreEndpoint::authority() const {
  return port ? host + ":" + std::to_string(*port) : host;
}

StoreAddress addressOf(const StoreEndpoint& endpoint, const std::string& bucket,
                       const std::string& encodedKey) {
  const bool dotted = bucket.find('.') != std::string::npos;
  if (!endpoint.isLiteral() && isDnsBucket(bucket) && !(dotted && endpoint.scheme == "https")) {
    return {endpoint.scheme, bucket + "." + endpoint.authority(), "/" + encodedKey};
  }
  return {endpoint.scheme, endpoint.authority(), "/" + percentEncode(bucket) + "/" + encodedKey};
}

std::optional<StoreAddress> redirectedAddress(const StoreEndpoint& endpoint,
                                              const StoreAddress& current,
                                              const std::string& bucket,
                                              const std::string& encodedKey,
                                              std::string_view target) {
  if (target.starts_with('/') && !target.starts_with("//")) return current;
  const auto to = StoreEndpoint::parse(originOf(target));
  if (!to || !isSameStore(endpoint, bucket, to->host)) return std::nullopt;
  if (current.scheme == "https" && to->scheme != "https") return std::nullopt;
  // A different port of the same host may belong to somebody else. From plain HTTP, the default
  // port of TLS belongs to the store.
  const bool samePort = to->scheme == endpoint.scheme && to->port == endpoint.port;
  const bool toTls = endpoint.scheme == "http" && to->scheme == "https" && !to->port;
  if (!samePort && !toTls) return std::nullopt;
  const bool bucketInHost = to->host.starts_with(bucket + ".") &&
                            isSameStore(endpoint, bucket, to->host.substr(bucket.size() + 1));
  if (bucketInHost) return StoreAddress{to->scheme, to->authority(), "/" + encodedKey};
  return StoreAddress{to->scheme, to->authority(), "/" + percentEncode(bucket) + "/" + encodedKey};
}

}  // namespace qx
