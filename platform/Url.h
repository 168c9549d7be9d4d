// A URL as a plain value: RFC 3986 generic syntax, checked once when it is made.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qx {

/// The parts of an address by its delimiters alone. The address may be malformed, as what people
/// and servers write often is, or have no scheme.
struct AddressParts {
  explicit AddressParts(std::string_view address);

  /// What stands before the first "://"; empty when that is missing.
  std::string_view scheme;
  /// What follows, up to the first "/", "?" or "#": user, host and port.
  std::string_view authority;
  /// Path, query and fragment.
  std::string_view rest;
};

class Url {
 public:
  /// Nothing when `text` is empty or not a URI reference by RFC 3986. Beyond that grammar, UTF-8
  /// outside ASCII is accepted as it stands; blanks, control characters and broken percent escapes
  /// are refused.
  static std::optional<Url> parse(std::string_view text);
  /// The file URL of an absolute path; bytes that a URL path cannot hold are percent-encoded.
  static Url file(std::string_view path);

  /// The text the URL was made from.
  const std::string& text() const { return text_; }
  /// Such as "https", as it is written. Empty when there is none.
  std::string_view scheme() const;
  /// User, host and port as they are written; nothing when there is no "//" before them.
  std::optional<std::string_view> authority() const;
  /// The authority's host, an IPv6 address without its brackets. May be empty.
  std::string_view host() const;
  /// True for "http://..." and "https://...", in lower case.
  bool isHttp() const;
  /// The part between authority and query, still percent-encoded. May be empty.
  std::string_view path() const;
  /// The path percent-decoded: for a file URL, the path on disk.
  std::string decodedPath() const;
  /// What follows the last "/" of the path, trailing slashes left out, percent-decoded. Empty when
  /// the path is empty; "/" is never part of it unless it was written "%2F".
  std::string lastPathComponent() const;

  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace qx
