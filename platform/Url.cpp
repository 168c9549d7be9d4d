#include "platform/Url.h"

#include <algorithm>
#include <cstddef>

#include "platform/Hex.h"
#include "platform/Utf8.h"

namespace qx {
namespace {

bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isUnreserved(char c) {
  return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}
bool isSubDelim(char c) {
  return std::string_view("!$&'()*+,;=").find(c) != std::string_view::npos;
}

/// The five parts of a reference, split at its delimiters alone. Absent and empty parts are told
/// apart only where that matters.
struct Parts {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

Parts split(std::string_view text) {
  Parts parts;
  if (const std::size_t hash = text.find('#'); hash != std::string_view::npos) {
    parts.fragment = text.substr(hash + 1);
    text = text.substr(0, hash);
  }
  if (const std::size_t mark = text.find('?'); mark != std::string_view::npos) {
    parts.query = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  if (const std::size_t colon = text.find(':'); colon < text.find('/')) {
    parts.scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::size_t end = std::min(text.find('/'), text.size());
    parts.authority = text.substr(0, end);
    text.remove_prefix(end);
  }
  parts.path = text;
  return parts;
}

/// True when `text` consists of unreserved characters, sub-delims, percent escapes, characters
/// outside ASCII and those in `others`.
bool consistsOf(std::string_view text, std::string_view others) {
  while (!text.empty()) {
    const char c = text.front();
    if (c == '%') {
      if (text.size() < 3 || hexValue(text[1]) < 0 || hexValue(text[2]) < 0) return false;
      text.remove_prefix(3);
    } else if (static_cast<unsigned char>(c) >= 0x80) {
      const auto character = takeUtf8Character(text);
      if (!character || *character < 0xA0) return false;  // A control character.
    } else {
      if (!isUnreserved(c) && !isSubDelim(c) && others.find(c) == std::string_view::npos) {
        return false;
      }
      text.remove_prefix(1);
    }
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isAlpha(text.front()) &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return isAlpha(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
         });
}

bool isIPv4(std::string_view text) {
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) {
      if (!text.starts_with('.')) return false;
      text.remove_prefix(1);
    }
    std::size_t digits = 0;
    int value = 0;
    while (digits < text.size() && digits < 3 && isDigit(text[digits])) {
      value = value * 10 + (text[digits++] - '0');
    }
    if (digits == 0 || value > 255 || (digits > 1 && text.front() == '0')) return false;
    text.remove_prefix(digits);
  }
  return text.empty();
}

/// The number of 16-bit groups in `text`, such as "1:2:3", with an IPv4 address as the last two
/// groups when `mayEndInIPv4`. Nothing for any other text.
std::optional<int> groupCount(std::string_view text, bool mayEndInIPv4) {
  if (text.empty()) return 0;
  for (int count = 1;; ++count) {
    const std::size_t end = std::min(text.find(':'), text.size());
    const std::string_view group = text.substr(0, end);
    const bool last = end == text.size();
    if (last && mayEndInIPv4 && isIPv4(group)) return count + 1;
    if (group.empty() || group.size() > 4 ||
        !std::all_of(group.begin(), group.end(), [](char c) { return hexValue(c) >= 0; })) {
      return std::nullopt;
    }
    if (last) return count;
    text.remove_prefix(end + 1);
  }
}

bool isIPv6(std::string_view text) {
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) return groupCount(text, true) == 8;
  const auto before = groupCount(text.substr(0, gap), false);
  const auto after = groupCount(text.substr(gap + 2), true);
  return before && after && *before + *after <= 7;
}

bool isIPvFuture(std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos || dot < 2 || (text.front() != 'v' && text.front() != 'V')) {
    return false;
  }
  const std::string_view version = text.substr(1, dot - 1);
  const std::string_view address = text.substr(dot + 1);
  return std::all_of(version.begin(), version.end(), [](char c) { return hexValue(c) >= 0; }) &&
         !address.empty() && std::all_of(address.begin(), address.end(), [](char c) {
           return isUnreserved(c) || isSubDelim(c) || c == ':';
         });
}

bool isAuthority(std::string_view text) {
  if (const std::size_t at = text.rfind('@'); at != std::string_view::npos) {
    if (!consistsOf(text.substr(0, at), ":")) return false;
    text.remove_prefix(at + 1);
  }
  std::size_t hostEnd = 0;
  if (text.starts_with('[')) {
    const std::size_t close = text.find(']');
    if (close == std::string_view::npos) return false;
    const std::string_view literal = text.substr(1, close - 1);
    if (!isIPv6(literal) && !isIPvFuture(literal)) return false;
    hostEnd = close + 1;
  } else {
    hostEnd = std::min(text.find(':'), text.size());
    if (!consistsOf(text.substr(0, hostEnd), "")) return false;
  }
  const std::string_view port = text.substr(hostEnd);
  return port.empty() ||
         (port.front() == ':' && std::all_of(port.begin() + 1, port.end(), isDigit));
}

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      decoded.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      decoded.push_back(text[i]);
    }
  }
  return decoded;
}

}  // namespace

AddressParts::AddressParts(std::string_view address) {
  if (const std::size_t end = address.find("://"); end != std::string_view::npos) {
    scheme = address.substr(0, end);
    address.remove_prefix(end + 3);
  }
  const std::size_t end = std::min(address.find_first_of("/?#"), address.size());
  authority = address.substr(0, end);
  rest = address.substr(end);
}

std::optional<Url> Url::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const Parts parts = split(text);
  // The text before a colon in the first path segment is taken for a scheme here, and refused.
  if (parts.scheme && !isScheme(*parts.scheme)) return std::nullopt;
  if (parts.authority && !isAuthority(*parts.authority)) return std::nullopt;
  if (!consistsOf(parts.path, ":@/")) return std::nullopt;
  if (parts.query && !consistsOf(*parts.query, ":@/?")) return std::nullopt;
  if (parts.fragment && !consistsOf(*parts.fragment, ":@/?")) return std::nullopt;
  return Url(std::string(text));
}

Url Url::file(std::string_view path) {
  std::string text = "file://";
  for (const char c : path) {
    if (isUnreserved(c) || isSubDelim(c) || c == ':' || c == '@' || c == '/') {
      text.push_back(c);
    } else {
      text.push_back('%');
      appendHex(text, static_cast<std::byte>(c), kUpperHex);
    }
  }
  return Url(std::move(text));
}

std::string_view Url::scheme() const {
  return split(text_).scheme.value_or(std::string_view());
}

std::optional<std::string_view> Url::authority() const {
  return split(text_).authority;
}

std::string_view Url::host() const {
  std::string_view hostAndPort = authority().value_or(std::string_view());
  // npos + 1 is 0, so without an "@" the whole authority is host and port.
  hostAndPort.remove_prefix(hostAndPort.rfind('@') + 1);
  if (hostAndPort.starts_with('[')) return hostAndPort.substr(1, hostAndPort.find(']') - 1);
  return hostAndPort.substr(0, hostAndPort.find(':'));
}

bool Url::isHttp() const {
  return authority() && (scheme() == "http" || scheme() == "https");
}

std::string_view Url::path() const {
  return split(text_).path;
}

std::string Url::decodedPath() const {
  return percentDecoded(path());
}

std::string Url::lastPathComponent() const {
  std::string_view rest = path();
  while (rest.ends_with('/')) rest.remove_suffix(1);
  // npos + 1 is 0, so without a "/" the whole path is the component.
  return percentDecoded(rest.substr(rest.rfind('/') + 1));
}

}  // namespace qx
