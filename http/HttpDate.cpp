#include "http/HttpDate.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <vector>

namespace qx {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// The parts between blanks, commas and dashes.
std::vector<std::string_view> partsOf(std::string_view text) {
  std::vector<std::string_view> parts;
  while (true) {
    const std::size_t start = text.find_first_not_of(" ,-");
    if (start == std::string_view::npos || parts.size() > 6) return parts;
    text.remove_prefix(start);
    const std::size_t end = std::min(text.find_first_of(" ,-"), text.size());
    parts.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

/// A number of at least `least` and at most `most` digits.
std::optional<int> number(std::string_view text, std::size_t least, std::size_t most) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  const bool whole = read.ec == std::errc() && read.ptr == end && !text.starts_with('-');
  if (!whole || text.size() < least || text.size() > most) return std::nullopt;
  return value;
}

std::optional<unsigned> monthOf(std::string_view name) {
  const auto* found = std::find(kMonths.begin(), kMonths.end(), name);
  if (found == kMonths.end()) return std::nullopt;
  return static_cast<unsigned>(found - kMonths.begin()) + 1;
}

/// Seconds since midnight of "08:49:37".
std::optional<int> timeOf(std::string_view text) {
  if (text.size() != 8 || text[2] != ':' || text[5] != ':') return std::nullopt;
  const auto hours = number(text.substr(0, 2), 2, 2);
  const auto minutes = number(text.substr(3, 2), 2, 2);
  const auto seconds = number(text.substr(6, 2), 2, 2);
  if (!hours || !minutes || !seconds) return std::nullopt;
  // 60 is a leap second.
  if (*hours > 23 || *minutes > 59 || *seconds > 60) return std::nullopt;
  return (*hours * 60 + *minutes) * 60 + *seconds;
}

std::optional<double> secondsOf(std::optional<int> year, std::string_view monthName,
                                std::optional<int> day, std::string_view timeText) {
  const auto month = monthOf(monthName);
  const auto time = timeOf(timeText);
  if (!year || !month || !day || !time) return std::nullopt;
  using namespace std::chrono;
  const year_month_day date{std::chrono::year(*year), std::chrono::month(*month),
                            std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok()) return std::nullopt;
  return static_cast<double>(duration_cast<seconds>(sys_days(date).time_since_epoch()).count() +
                             *time);
}

}  // namespace

std::optional<double> parseHttpDate(std::string_view text) {
  const std::vector<std::string_view> parts = partsOf(text);
  // "Sun Nov  6 08:49:37 1994"
  if (parts.size() == 5) {
    return secondsOf(number(parts[4], 4, 4), parts[1], number(parts[2], 1, 2), parts[3]);
  }
  if (parts.size() != 6 || parts[5] != "GMT") return std::nullopt;
  // "Sun, 06 Nov 1994 08:49:37 GMT" and "Sunday, 06-Nov-94 08:49:37 GMT"
  std::optional<int> year = number(parts[3], 4, 4);
  if (const auto twoDigits = number(parts[3], 2, 2)) {
    // RFC 9110 asks for the century that is nearest. This form is older than the present century.
    year = *twoDigits + (*twoDigits < 70 ? 2000 : 1900);
  }
  return secondsOf(year, parts[2], number(parts[1], 2, 2), parts[4]);
}

}  // namespace qx
