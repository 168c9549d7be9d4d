#include "Classes/NumberText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <system_error>

namespace qx {
namespace {

/// The shortest digits d1 d2 d3 ... of a finite value d1.d2d3... * 10^exponent.
struct Digits {
  bool negative = false;
  std::string digits;
  int exponent = 0;
};

template <typename Float>
Digits shortestDigits(Float value) {
  // The longest text has a sign, 17 digits, a point, "e", a sign and three digits of the exponent.
  std::array<char, 32> buffer;
  const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(value),
                                     std::chars_format::scientific);
  const std::string_view text(buffer.data(), static_cast<std::size_t>(written.ptr - buffer.data()));
  const std::size_t e = text.find('e');
  Digits result;
  result.negative = std::signbit(value);
  for (const char c : text.substr(0, e)) {
    if (c != '.') result.digits += c;
  }
  std::string_view exponent = text.substr(e + 1);
  if (exponent.front() == '+') exponent.remove_prefix(1);
  std::from_chars(exponent.data(), exponent.data() + exponent.size(), result.exponent);
  return result;
}

std::string positionalText(const Digits& number) {
  const int count = static_cast<int>(number.digits.size());
  std::string text = number.negative ? "-" : "";
  if (number.exponent < 0) {
    text += "0.";
    text.append(static_cast<std::size_t>(-number.exponent - 1), '0');
    return text + number.digits;
  }
  const int integerDigits = number.exponent + 1;
  if (count <= integerDigits) {
    text += number.digits;
    text.append(static_cast<std::size_t>(integerDigits - count), '0');
    return text + ".0";
  }
  const auto point = static_cast<std::size_t>(integerDigits);
  return text + number.digits.substr(0, point) + "." + number.digits.substr(point);
}

std::string exponentText(const Digits& number) {
  std::string text = number.negative ? "-" : "";
  text += number.digits[0];
  if (number.digits.size() > 1) text += "." + number.digits.substr(1);
  text += number.exponent < 0 ? "e-" : "e+";
  const std::string exponent = std::to_string(std::abs(number.exponent));
  if (exponent.size() < 2) text += '0';
  return text + exponent;
}

template <typename Float>
std::string nonFiniteText(Float value) {
  if (std::isnan(value)) return "nan";
  return std::signbit(value) ? "-inf" : "inf";
}

template <typename Float>
std::string text(Float value, Float lastPositional) {
  if (!std::isfinite(value)) return nonFiniteText(value);
  const Digits number = shortestDigits(value);
  if (number.exponent < -4 || std::fabs(value) > lastPositional) return exponentText(number);
  return positionalText(number);
}

}  // namespace

std::string shortestText(double value) {
  return text(value, 0x1p53);
}

std::string shortestText(float value) {
  return text(value, 0x1p24F);
}

std::string timeText(double secondsSince1970) {
  if (!std::isfinite(secondsSince1970)) return nonFiniteText(secondsSince1970);
  return positionalText(shortestDigits(secondsSince1970));
}

std::optional<std::int64_t> parseDecimal(std::string_view text) {
  // from_chars reads "-" but not "+".
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  std::int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [parsedTo, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || parsedTo != end) return std::nullopt;
  return value;
}

}  // namespace qx
