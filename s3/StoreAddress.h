// Where an object lies: the store's endpoint, how a bucket is addressed there, and which hosts
// belong to the same store.
//
// Threads: plain values and pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qx {

/// Scheme, host and port of a store.
struct StoreEndpoint {
  /// "http" or "https".
  std::string scheme;
  /// In lower case; an IPv6 address stands in brackets.
  std::string host;
  /// Absent: the scheme's own.
  std::optional<int> port;

  /// Nothing unless `url` is scheme, host and optional port, with no path but "/".
  static std::optional<StoreEndpoint> parse(std::string_view url);
  /// An IP address or a name of this machine: it has no names below it, one per bucket.
  bool isLiteral() const;
  /// Host and port as in a Host header and a URL.
  std::string authority() const;

  friend bool operator==(const StoreEndpoint&, const StoreEndpoint&) = default;
};

/// The URL of one object in the three parts that its signature needs.
struct StoreAddress {
  std::string scheme;
  std::string authority;
  /// Percent-encoded.
  std::string path;

  std::string url() const { return scheme + "://" + authority + path; }
};

/// `encodedKey` is percent-encoded. At a name the bucket becomes a part of the host where a name
/// and the certificate allow it (no dots over TLS), else the first part of the path.
StoreAddress addressOf(const StoreEndpoint& endpoint, const std::string& bucket,
                       const std::string& encodedKey);

/// Where a redirect leads, or nothing when `target` (a URL) is not of the same store: the same
/// host, a name below it, or its name for another region; never from https to http, never to
/// another port of the same scheme.
std::optional<StoreAddress> redirectedAddress(const StoreEndpoint& endpoint,
                                              const StoreAddress& current,
                                              const std::string& bucket,
                                              const std::string& encodedKey,
                                              std::string_view target);

}  // namespace qx
