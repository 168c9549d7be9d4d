// A URL by the generic syntax of RFC 3986, which is checked once, when the URL is made.
//
//     const auto url = Url::parse("https://cdn.example.com/photos/a%20b.jpg?v=1");
//     url->host();               // "cdn.example.com"
//     url->path();               // "/photos/a%20b.jpg"
//     url->lastPathComponent();  // "a b.jpg"
//
// Threads: plain values.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Export.h"

namespace qx {

/// The parts of an address, split at its delimiters alone. The address may be malformed or have no
/// scheme.
struct QX_EXPORT AddressParts {
  explicit AddressParts(std::string_view address);

  /// The part before the first "://". Empty when there is none.
  std::string_view scheme;
  /// The part after the scheme up to the first "/", "?" or "#": user, host and port.
  std::string_view authority;
  /// The path, the query and the fragment.
  std::string_view rest;
};

class QX_EXPORT Url {
 public:
  /// Reads a URL. Nothing when `text` is empty or no URI reference by RFC 3986. UTF-8 outside ASCII
  /// is accepted unchanged, too. Blanks, control characters and broken percent escapes are refused.
  static std::optional<Url> parse(std::string_view text);
  /// Makes the file URL of an absolute path. Bytes that a URL path cannot hold are percent-encoded.
  static Url file(std::string_view path);

  /// The text of which the URL was made.
  const std::string& text() const { return text_; }
  /// The scheme as it is written, such as "https". Empty when there is none.
  std::string_view scheme() const;
  /// The user, host and port as they are written. Nothing when there is no "//" before them.
  std::optional<std::string_view> authority() const;
  /// The host in the authority. It may be empty; an IPv6 address has no brackets here.
  std::string_view host() const;
  /// True when the URL begins with "http://" or "https://" in lower case.
  bool isHttp() const;
  /// The part between the authority and the query, still percent-encoded. It may be empty.
  std::string_view path() const;
  /// The path, percent-decoded. For a file URL this is the path on the disk.
  std::string decodedPath() const;
  /// The part after the last "/" of the path, percent-decoded, without regard to slashes at the
  /// end. Empty when the path is empty. It contains a "/" only if that was written as "%2F".
  std::string lastPathComponent() const;

  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace qx
