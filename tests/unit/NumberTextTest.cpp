#include "Classes/NumberText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace qx {
namespace {

/// The digits of a text, without its sign, point, exponent and the zeros at its ends.
std::string significantDigits(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (c == 'e') break;
    if (c >= '0' && c <= '9') digits += c;
  }
  digits.erase(0, digits.find_first_not_of('0'));
  const std::size_t last = digits.find_last_not_of('0');
  digits.erase(last == std::string::npos ? 0 : last + 1);
  return digits;
}

/// The number of digits that the C library needs until the text is read as the same value.
template <typename Float, typename Parse>
std::size_t fewestDigits(Float value, Parse parse) {
  for (int precision = 1; precision < 17; ++precision) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", precision - 1, static_cast<double>(value));
    if (parse(text) == value) return significantDigits(text).size();
  }
  return 17;
}

double parseDouble(const char* text) {
  return std::strtod(text, nullptr);
}
float parseFloat(const char* text) {
  return std::strtof(text, nullptr);
}

std::vector<double> randomDoubles(int count) {
  std::mt19937_64 bits(20231114);
  std::vector<double> values;
  while (static_cast<int>(values.size()) < count) {
    const std::uint64_t pattern = bits();
    double value = 0;
    std::memcpy(&value, &pattern, sizeof value);
    if (std::isfinite(value)) values.push_back(value);
  }
  return values;
}

TEST(NumberText, DoubleIsItsShortestDigits) {
  const std::vector<std::pair<double, std::string>> rows = {
      {0.1, "0.1"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1.0 / 3, "0.3333333333333333"},
      {2.5, "2.5"},
      {-2.5, "-2.5"},
      {1700000000.123456, "1700000000.123456"},
      {123456.75, "123456.75"},
      {2251799813685248.5, "2251799813685248.5"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(shortestText(value), text);
}

TEST(NumberText, IntegralDoubleEndsInPointZero) {
  EXPECT_EQ(shortestText(1.0), "1.0");
  EXPECT_EQ(shortestText(-7.0), "-7.0");
  EXPECT_EQ(shortestText(100.0), "100.0");
  EXPECT_EQ(shortestText(1700000000.0), "1700000000.0");
  EXPECT_EQ(shortestText(1e15), "1000000000000000.0");
}

TEST(NumberText, ZeroKeepsItsSign) {
  EXPECT_EQ(shortestText(0.0), "0.0");
  EXPECT_EQ(shortestText(-0.0), "-0.0");
  EXPECT_EQ(shortestText(0.0F), "0.0");
  EXPECT_EQ(shortestText(-0.0F), "-0.0");
}

TEST(NumberText, NonFiniteValuesHaveNames) {
  EXPECT_EQ(shortestText(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(shortestText(-std::numeric_limits<double>::infinity()), "-inf");
  EXPECT_EQ(shortestText(std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(shortestText(std::numeric_limits<float>::infinity()), "inf");
  EXPECT_EQ(shortestText(-std::numeric_limits<float>::infinity()), "-inf");
  EXPECT_EQ(shortestText(std::numeric_limits<float>::quiet_NaN()), "nan");
}

TEST(NumberText, SmallDoubleTakesTheExponentFormBelowOneTenThousandth) {
  EXPECT_EQ(shortestText(0.001), "0.001");
  EXPECT_EQ(shortestText(0.0001), "0.0001");
  EXPECT_EQ(shortestText(0.00012345), "0.00012345");
  EXPECT_EQ(shortestText(-0.0001), "-0.0001");
  EXPECT_EQ(shortestText(std::nextafter(0.0001, 0)), "9.999999999999999e-05");
  EXPECT_EQ(shortestText(0.00001), "1e-05");
  EXPECT_EQ(shortestText(-0.000015), "-1.5e-05");
  EXPECT_EQ(shortestText(1e-100), "1e-100");
  EXPECT_EQ(shortestText(std::numeric_limits<double>::denorm_min()), "5e-324");
}

TEST(NumberText, LargeDoubleTakesTheExponentFormAboveTwoToThe53) {
  EXPECT_EQ(shortestText(9007199254740991.0), "9007199254740991.0");
  EXPECT_EQ(shortestText(9007199254740992.0), "9007199254740992.0");
  EXPECT_EQ(shortestText(-9007199254740992.0), "-9007199254740992.0");
  EXPECT_EQ(shortestText(9007199254740994.0), "9.007199254740994e+15");
  EXPECT_EQ(shortestText(-9007199254740994.0), "-9.007199254740994e+15");
  EXPECT_EQ(shortestText(1e16), "1e+16");
  EXPECT_EQ(shortestText(1.5e300), "1.5e+300");
  EXPECT_EQ(shortestText(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
}

TEST(NumberText, FloatIsTheShortestDigitsOfItsOwnPrecision) {
  EXPECT_EQ(shortestText(0.1F), "0.1");
  EXPECT_EQ(shortestText(1.0F), "1.0");
  EXPECT_EQ(shortestText(3.1415927F), "3.1415927");
  EXPECT_EQ(shortestText(1.0F / 3), "0.33333334");
  EXPECT_EQ(shortestText(-2.5F), "-2.5");
  EXPECT_EQ(shortestText(0.0001F), "0.0001");
  EXPECT_EQ(shortestText(0.00001F), "1e-05");
  EXPECT_EQ(shortestText(std::numeric_limits<float>::max()), "3.4028235e+38");
}

TEST(NumberText, LargeFloatTakesTheExponentFormAboveTwoToThe24) {
  EXPECT_EQ(shortestText(16777215.0F), "16777215.0");
  EXPECT_EQ(shortestText(16777216.0F), "16777216.0");
  EXPECT_EQ(shortestText(16777218.0F), "1.6777218e+07");
  EXPECT_EQ(shortestText(-16777218.0F), "-1.6777218e+07");
  EXPECT_EQ(shortestText(1e8F), "1e+08");
}

TEST(NumberText, AnyDoubleReadsBackFromTheFewestDigits) {
  for (const double value : randomDoubles(20000)) {
    const std::string text = shortestText(value);
    ASSERT_EQ(parseDouble(text.c_str()), value) << text;
    ASSERT_EQ(significantDigits(text).size(), fewestDigits(value, parseDouble)) << text;
  }
}

TEST(NumberText, AnyFloatReadsBackFromTheFewestDigits) {
  for (const double wide : randomDoubles(20000)) {
    const auto value = static_cast<float>(std::remainder(wide, 1e6));
    if (value == 0) continue;
    const std::string text = shortestText(value);
    ASSERT_EQ(parseFloat(text.c_str()), value) << text;
    ASSERT_EQ(significantDigits(text).size(), fewestDigits(value, parseFloat)) << text;
  }
}

TEST(NumberText, TimeKeepsItsFraction) {
  EXPECT_EQ(timeText(1700000000.123456), "1700000000.123456");
  EXPECT_EQ(timeText(1700000000.5), "1700000000.5");
  EXPECT_EQ(timeText(0.25), "0.25");
}

TEST(NumberText, IntegralTimeEndsInPointZero) {
  EXPECT_EQ(timeText(1700000000), "1700000000.0");
  EXPECT_EQ(timeText(0), "0.0");
}

TEST(NumberText, TimeNeverTakesTheExponentForm) {
  EXPECT_EQ(timeText(1e16), "10000000000000000.0");
  EXPECT_EQ(timeText(1e22), "10000000000000000000000.0");
  EXPECT_EQ(timeText(0.00001), "0.00001");
  EXPECT_EQ(timeText(-1.5e-7), "-0.00000015");
}

TEST(NumberText, AnyTimeReadsBackWithoutAnExponent) {
  for (const double value : randomDoubles(2000)) {
    const std::string text = timeText(value);
    ASSERT_EQ(parseDouble(text.c_str()), value) << text;
    ASSERT_EQ(text.find_first_of("eE"), std::string::npos) << text;
    ASSERT_NE(text.find('.'), std::string::npos) << text;
  }
}

TEST(NumberText, SignedDigitsWithinTheRangeParse) {
  EXPECT_EQ(parseDecimal("0"), 0);
  EXPECT_EQ(parseDecimal("-0"), 0);
  EXPECT_EQ(parseDecimal("+42"), 42);
  EXPECT_EQ(parseDecimal("-42"), -42);
  EXPECT_EQ(parseDecimal("007"), 7);
  EXPECT_EQ(parseDecimal("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(parseDecimal("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(parseDecimal("00000000000000000000000000000001"), 1);
}

TEST(NumberText, AnythingElseParsesToNothingRatherThanZero) {
  for (const char* text :
       {"", "+", "-", "+-1", "-+1", "++1", "--1", " 12", "12 ", "1_000", "0x10", "1.0", "1e3",
        "9223372036854775808", "-9223372036854775809", "abc", "12abc", "\xD9\xA1"}) {
    EXPECT_EQ(parseDecimal(text), std::nullopt) << '"' << text << '"';
  }
  EXPECT_EQ(parseDecimal(std::string_view("1\0", 2)), std::nullopt);
}

}  // namespace
}  // namespace qx
