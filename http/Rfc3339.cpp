#include "http/Rfc3339.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace qx {
namespace {

/// Reads a text from its start. After the first mismatch every later step fails.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  int digits(std::size_t count) {
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const char c = next();
      if (c < '0' || c > '9') good_ = false;
      value = value * 10 + (c - '0');
    }
    return good_ ? value : 0;
  }
  /// Takes the next character, which must be one of `choices`.
  char one(std::string_view choices) {
    const char c = next();
    if (choices.find(c) == std::string_view::npos) good_ = false;
    return c;
  }
  bool peek(char c) const { return at_ < text_.size() && text_[at_] == c; }
  bool peekDigit() const { return at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9'; }
  bool good() const { return good_; }
  bool atEnd() const { return good_ && at_ == text_.size(); }

 private:
  char next() {
    if (at_ < text_.size()) return text_[at_++];
    good_ = false;
    return '\0';
  }
  std::string_view text_;
  std::size_t at_ = 0;
  bool good_ = true;
};

}  // namespace

std::optional<double> parseRfc3339(std::string_view text) {
  using std::chrono::day;
  using std::chrono::month;
  using std::chrono::year;
  Reader reader(text);
  const int yearNumber = reader.digits(4);
  reader.one("-");
  const int monthNumber = reader.digits(2);
  reader.one("-");
  const int dayNumber = reader.digits(2);
  reader.one("Tt");
  const int hour = reader.digits(2);
  reader.one(":");
  const int minute = reader.digits(2);
  reader.one(":");
  const int second = reader.digits(2);
  double fraction = 0;
  if (reader.peek('.')) {
    reader.one(".");
    fraction += 0.1 * reader.digits(1);
    for (double unit = 0.01; reader.peekDigit(); unit /= 10) fraction += unit * reader.digits(1);
  }
  int offset = 0;
  const char zone = reader.one("Zz+-");
  if (zone == '+' || zone == '-') {
    const int hours = reader.digits(2);
    reader.one(":");
    const int minutes = reader.digits(2);
    if (hours > 23 || minutes > 59) return std::nullopt;
    offset = (zone == '+' ? 1 : -1) * (hours * 3600 + minutes * 60);
  }
  const std::chrono::year_month_day date{year{yearNumber},
                                         month{static_cast<unsigned>(monthNumber)},
                                         day{static_cast<unsigned>(dayNumber)}};
  // A second of 60 is a leap second, which counts as the first second of the next minute.
  if (!reader.atEnd() || !date.ok() || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  const auto days = std::chrono::sys_days{date}.time_since_epoch().count();
  return static_cast<double>(days) * 86400 + hour * 3600 + minute * 60 + second - offset + fraction;
}

std::optional<std::string> rfc3339Text(double secondsSince1970) {
  // The first instants of the years 0 and 10,000.
  if (!(secondsSince1970 >= -62167219200.0 && secondsSince1970 < 253402300800.0)) {
    return std::nullopt;
  }
  using Microseconds = std::chrono::duration<std::int64_t, std::micro>;
  const Microseconds time{std::llround(secondsSince1970 * 1e6)};
  const auto days = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date{std::chrono::sys_days{days}};
  const std::chrono::hh_mm_ss<Microseconds> clock{time - days};
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", int{date.year()},
                unsigned{date.month()}, unsigned{date.day()},
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  std::string whole = text.data();
  if (const auto fraction = clock.subseconds().count(); fraction != 0) {
    std::snprintf(text.data(), text.size(), ".%06d", static_cast<int>(fraction));
    whole += text.data();
  }
  return whole + "Z";
}

}  // namespace qx
