// The addresses of objects: the endpoint of the store, how a bucket is addressed there, and which
// hosts belong to the same store.
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
  /// The host in lower case. An IPv6 address has brackets.
  std::string host;
  /// The port. Absent: the default port of the scheme.
  std::optional<int> port;

  /// Reads an endpoint. Nothing unless `url` has only a scheme, a host, an optional port and the
  /// path "/" or none.
  static std::optional<StoreEndpoint> parse(std::string_view url);
  /// True for an IP address or a name of this machine. Such a host has no names below it, so that
  /// buckets cannot be part of the host.
  bool isLiteral() const;
  /// The host and the port as a Host header and a URL have them.
  std::string authority() const;

  friend bool operator==(const StoreEndpoint&, const StoreEndpoint&) = default;
};

/// The URL of an object, in the three parts that the signature needs.
struct StoreAddress {
  std::string scheme;
  std::string authority;
  /// The percent-encoded path.
  std::string path;

  std::string url() const { return scheme + "://" + authority + path; }
};

/// The address of an object; `encodedKey` is percent-encoded. The bucket becomes part of the host
/// if the host is a name and the certificate allows it (no dots over TLS), else the first part of
/// the path.
StoreAddress addressOf(const StoreEndpoint& endpoint, const std::string& bucket,
                       const std::string& encodedKey);

/// The address to which a redirect leads. Nothing when the URL `target` does not belong to the same
/// store: to the same host, a name below it, or its name for another region. A redirect never leads
/// from https to http or to another port of the same scheme.
std::optional<StoreAddress> redirectedAddress(const StoreEndpoint& endpoint,
                                              const StoreAddress& current,
                                              const std::string& bucket,
                                              const std::string& encodedKey,
                                              std::string_view target);

}  // namespace qx
