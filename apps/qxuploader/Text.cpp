#include "Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>

namespace qx::app {
namespace {

template <typename... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
  std::array<char, 64> buffer;
  std::snprintf(buffer.data(), buffer.size(), pattern, arguments...);
  return buffer.data();
}

/// The byte at `i`, or 0 after the end.
unsigned byteAt(std::string_view text, std::size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
}

/// A character that steers a terminal or the direction of writing, and its bytes in UTF-8.
struct Steering {
  unsigned character = 0;
  std::size_t bytes = 0;
};

/// The steering character of two or three bytes that begins at `i`, or nothing.
std::optional<Steering> steeringAt(std::string_view text, std::size_t i) {
  const unsigned first = byteAt(text, i);
  const unsigned second = byteAt(text, i + 1) & 0x3f;
  const unsigned third = byteAt(text, i + 2) & 0x3f;
  if ((byteAt(text, i + 1) & 0xc0) != 0x80) return std::nullopt;
  if (first == 0xc2 || first == 0xd8) {
    const unsigned character = (first & 0x1f) << 6 | second;
    const bool steers = (character >= 0x80 && character <= 0x9f) || character == 0x61c;
    if (steers) return Steering{character, 2};
  }
  if (first == 0xe2 && (byteAt(text, i + 2) & 0xc0) == 0x80) {
    const unsigned character = 0x2000 | second << 6 | third;
    const bool steers = character == 0x200e || character == 0x200f ||
                        (character >= 0x202a && character <= 0x202e) ||
                        (character >= 0x2066 && character <= 0x2069);
    if (steers) return Steering{character, 3};
  }
  return std::nullopt;
}

}  // namespace

std::string bytesText(std::uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double amount = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (amount >= 1023.95 && unit + 1 < kUnits.size()) {
    amount /= 1024;
    ++unit;
  }
  return format("%.1f %s", amount, kUnits[unit]);
}

std::string durationText(double seconds) {
  if (!(seconds >= 0) || seconds > 99 * 3600.0) return "--";
  const long whole = std::lround(std::ceil(seconds));
  if (whole < 60) return std::to_string(whole) + " s";
  if (whole < 3600) return format("%ld:%02ld", whole / 60, whole % 60);
  return format("%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
}

std::string countText(std::uint64_t count, std::string_view singular, std::string_view plural) {
  return std::to_string(count) + " " + std::string(count == 1 ? singular : plural);
}

std::string printable(std::string_view text) {
  std::string safe;
  int following = 0;  // The bytes of the current character that are still to come.
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (const auto steering = steeringAt(text, i)) {
      safe += format("\\u%04x", steering->character);
      i += steering->bytes - 1;
      following = 0;
      continue;
    }
    const unsigned byte = byteAt(text, i);
    const bool continues = (byte & 0xc0) == 0x80;
    // By itself such a byte is a control character to a terminal without UTF-8.
    const bool stray = continues && following == 0;
    following = continues      ? std::max(following - 1, 0)
                : byte >= 0xf0 ? 3
                : byte >= 0xe0 ? 2
                : byte >= 0xc0 ? 1
                               : 0;
    if (byte < 0x20 || byte == 0x7f || stray) {
      safe += format("\\x%02x", byte);
    } else {
      safe += text[i];
    }
  }
  return safe;
}

std::string printableJson(std::string_view json) {
  std::string safe;
  safe.reserve(json.size());
  for (std::size_t i = 0; i < json.size(); ++i) {
    if (const auto steering = steeringAt(json, i)) {
      safe += format("\\u%04x", steering->character);
      i += steering->bytes - 1;
    } else if (json[i] == '\x7f') {
      safe += "\\u007f";
    } else {
      safe += json[i];
    }
  }
  return safe;
}

std::string cut(std::string_view text, std::size_t columns) {
  std::size_t characters = 0;
  std::size_t keep = 0;  // The bytes of the first columns - 1 characters.
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool starts = (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80;
    if (starts && ++characters == columns) keep = i;
  }
  if (characters <= columns) return std::string(text);
  if (columns == 0) return {};
  return std::string(text.substr(0, keep)) + "…";
}

std::string timeText(double secondsSince1970) {
  const auto time = static_cast<std::time_t>(secondsSince1970);
  std::tm utc{};
  ::gmtime_r(&time, &utc);
  std::array<char, 32> buffer;
  const std::size_t n = std::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return std::string(buffer.data(), n);
}

std::string baseName(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace qx::app
