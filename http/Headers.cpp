#include "http/Headers.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/Url.h"

namespace qx {
namespace {

constexpr std::size_t kLongestUrl = 64 << 10;

char lowered(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isToken(std::string_view name) {
  constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
  return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kMarks.find(c) != std::string_view::npos;
  });
}

Error refusal(std::int64_t code, std::string description) {
  return {"Transport", code, std::move(description)};
}

}  // namespace

std::string libraryUserAgent() {
  return "QXAwsUploader/" QX_VERSION;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowered(x) == lowered(y); });
}

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = lowered(c);
  return lower;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlank);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::optional<std::string_view> headerOf(const HTTPHeaders& headers, std::string_view name) {
  for (const auto& [key, value] : headers) {
    if (equalsIgnoringCase(key, name)) return value;
  }
  return std::nullopt;
}

void setHeader(HTTPHeaders& headers, const std::string& name, std::string value) {
  std::erase_if(headers, [&](const auto& field) { return equalsIgnoringCase(field.first, name); });
  headers.emplace_back(name, std::move(value));
}

std::string_view originOf(std::string_view url) {
  return url.substr(0, url.size() - AddressParts(url).rest.size());
}

std::optional<Error> checkSendable(const std::string& url, const HTTPHeaders& headers) {
  const auto isUnsafe = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7f'; };
  if (std::any_of(url.begin(), url.end(), isUnsafe)) {
    return refusal(kMalformedUrl, "the URL holds a blank or a control character");
  }
  const AddressParts parts(url);
  if (!equalsIgnoringCase(parts.scheme, "http") && !equalsIgnoringCase(parts.scheme, "https")) {
    return refusal(kUnsupportedScheme, "not an HTTP URL");
  }
  if (parts.authority.empty() || url.size() > kLongestUrl) {
    return refusal(kMalformedUrl, "the URL has no host or is too long");
  }
  const auto breaksLine = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
  for (const auto& [field, value] : headers) {
    if (!isToken(field)) return refusal(kMalformedHeader, "a header name is not a token");
    if (std::any_of(value.begin(), value.end(), breaksLine)) {
      return refusal(kMalformedHeader, "the header " + field + " holds a line break or NUL");
    }
  }
  return std::nullopt;
}

std::optional<std::int64_t> contentLength(std::string_view text) {
  std::int64_t length = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, length);
  if (text.starts_with('-') || read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return length;
}

// Headers that contradict one another do not say for certain where the body ends, because another
// reader of the same answer may understand them differently.
bool isFramed(const HTTPHeaders& headers, std::string_view version, std::int64_t received) {
  int lengths = 0;
  int codings = 0;
  bool chunked = false;
  for (const auto& [name, value] : headers) {
    if (name == "content-length") {
      ++lengths;
      if (contentLength(value) != received) return false;
    } else if (name == "transfer-encoding") {
      ++codings;
      chunked = equalsIgnoringCase(value, "chunked");
    }
  }
  if (lengths > 1 || codings > 1) return false;
  if (codings == 1) return chunked && version == "HTTP/1.1";
  return lengths == 1 || !version.starts_with("HTTP/1");
}

}  // namespace qx
