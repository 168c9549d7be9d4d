#include "http/IpAddress.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace qx {
namespace {

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isOctet(std::string_view text) {
  if (text.empty() || text.size() > 3 || (text.size() > 1 && text.front() == '0')) return false;
  int value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    value = 10 * value + (c - '0');
  }
  return value <= 255;
}

/// The number of groups in the text between two ends or "::". Nothing when the text is malformed.
/// An empty text has no group.
std::optional<int> groupsOf(std::string_view text, bool mayEndInIpv4) {
  int groups = 0;
  while (!text.empty()) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    const bool last = colon == std::string_view::npos;
    if (last && mayEndInIpv4 && isIpv4Address(group)) return groups + 2;
    if (group.empty() || group.size() > 4 || !std::all_of(group.begin(), group.end(), isHexDigit)) {
      return std::nullopt;
    }
    ++groups;
    if (last) break;
    text.remove_prefix(colon + 1);
    // The text ends with a single colon.
    if (text.empty()) return std::nullopt;
  }
  return groups;
}

}  // namespace

bool isIpv4Address(std::string_view text) {
  for (int octet = 0; octet < 3; ++octet) {
    const std::size_t dot = text.find('.');
    if (dot == std::string_view::npos || !isOctet(text.substr(0, dot))) return false;
    text.remove_prefix(dot + 1);
  }
  return isOctet(text);
}

bool isIpv6Address(std::string_view text) {
  constexpr int kGroups = 8;
  const std::size_t gap = text.find("::");
  if (gap == std::string_view::npos) return groupsOf(text, true) == kGroups;
  const auto before = groupsOf(text.substr(0, gap), false);
  const auto after = groupsOf(text.substr(gap + 2), true);
  return before && after && *before + *after < kGroups;
}

}  // namespace qx
