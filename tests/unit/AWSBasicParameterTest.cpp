#include "Classes/AWSBasicParameter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace qx {
namespace {

using UntypedMap = std::map<std::string, std::map<std::string, std::map<std::string, Value>>>;

constexpr std::int64_t kMinInt = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMaxInt = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kTwoTo63 = std::uint64_t{1} << 63;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

AWSBasicParameter integer(std::int64_t v) {
  return v;
}
AWSBasicParameter unsignedInteger(std::uint64_t v) {
  return v;
}

/// The parameter that a single leaf becomes.
AWSBasicParameter converted(Value leaf) {
  return AWSBasicParameterConvert({{"file", {{"extra", {{"key", std::move(leaf)}}}}}})
      .at("file")
      .at("extra")
      .at("key");
}

TEST(AWSBasicParameter, IntIsItself) {
  EXPECT_EQ(integer(-5).toInt(), -5);
  EXPECT_EQ(integer(kMinInt).toInt(), kMinInt);
  EXPECT_EQ(integer(kMaxInt).toInt(), kMaxInt);
  EXPECT_EQ(integer(-5).toString(), "-5");
  EXPECT_EQ(integer(0).toString(), "0");
  EXPECT_EQ(integer(kMinInt).toString(), "-9223372036854775808");
}

TEST(AWSBasicParameter, UIntIsItselfUpToTheSignedMaximum) {
  EXPECT_EQ(unsignedInteger(0).toInt(), 0);
  EXPECT_EQ(unsignedInteger(kTwoTo63 - 1).toInt(), kMaxInt);
  EXPECT_EQ(unsignedInteger(std::numeric_limits<std::uint64_t>::max()).toString(),
            "18446744073709551615");
}

TEST(AWSBasicParameterDeathTest, UIntAboveTheSignedMaximumStopsTheProcess) {
  EXPECT_DEATH(unsignedInteger(kTwoTo63).toInt(),
               "QXAwsUploader: fatal: 9223372036854775808 is outside the signed 64-bit range");
}

TEST(AWSBasicParameter, DoubleTruncatesTowardZero) {
  EXPECT_EQ(AWSBasicParameter(2.9).toInt(), 2);
  EXPECT_EQ(AWSBasicParameter(-2.9).toInt(), -2);
  EXPECT_EQ(AWSBasicParameter(-0.5).toInt(), 0);
  EXPECT_EQ(AWSBasicParameter(-0x1p63).toInt(), kMinInt);
  EXPECT_EQ(AWSBasicParameter(std::nextafter(0x1p63, 0)).toInt(), 9223372036854774784);
}

TEST(AWSBasicParameterDeathTest, DoubleOutsideTheSignedRangeStopsTheProcess) {
  EXPECT_DEATH(AWSBasicParameter(0x1p63).toInt(), "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(std::nextafter(-0x1p63, -kInfinity)).toInt(),
               "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(kInfinity).toInt(), "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(-kInfinity).toInt(), "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(kNaN).toInt(), "QXAwsUploader: fatal: ");
}

TEST(AWSBasicParameter, FloatTruncatesTowardZero) {
  EXPECT_EQ(AWSBasicParameter(2.9F).toInt(), 2);
  EXPECT_EQ(AWSBasicParameter(-2.9F).toInt(), -2);
  EXPECT_EQ(AWSBasicParameter(-0x1p63F).toInt(), kMinInt);
}

TEST(AWSBasicParameterDeathTest, FloatOutsideTheSignedRangeStopsTheProcess) {
  EXPECT_DEATH(AWSBasicParameter(0x1p63F).toInt(), "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(std::nextafter(-0x1p63F, -1e30F)).toInt(),
               "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(std::numeric_limits<float>::infinity()).toInt(),
               "QXAwsUploader: fatal: ");
  EXPECT_DEATH(AWSBasicParameter(std::numeric_limits<float>::quiet_NaN()).toInt(),
               "QXAwsUploader: fatal: ");
}

TEST(AWSBasicParameter, FloatsPrintTheShortestTextOfTheirOwnPrecision) {
  EXPECT_EQ(AWSBasicParameter(0.1).toString(), "0.1");
  EXPECT_EQ(AWSBasicParameter(0.1F).toString(), "0.1");
  EXPECT_EQ(AWSBasicParameter(1.0).toString(), "1.0");
  EXPECT_EQ(AWSBasicParameter(static_cast<double>(0.1F)).toString(), "0.10000000149011612");
  EXPECT_EQ(AWSBasicParameter(0.00001).toString(), "1e-05");
  EXPECT_EQ(AWSBasicParameter(-0.0).toString(), "-0.0");
  EXPECT_EQ(AWSBasicParameter(kNaN).toString(), "nan");
}

TEST(AWSBasicParameter, TextIsItself) {
  EXPECT_EQ(AWSBasicParameter("").toString(), "");
  EXPECT_EQ(AWSBasicParameter(" caf\xC3\xA9 ").toString(), " caf\xC3\xA9 ");
}

TEST(AWSBasicParameter, TextOfSignAndDigitsIsThatInteger) {
  EXPECT_EQ(AWSBasicParameter("12").toInt(), 12);
  EXPECT_EQ(AWSBasicParameter("+42").toInt(), 42);
  EXPECT_EQ(AWSBasicParameter("-42").toInt(), -42);
  EXPECT_EQ(AWSBasicParameter("-0").toInt(), 0);
  EXPECT_EQ(AWSBasicParameter("007").toInt(), 7);
  EXPECT_EQ(AWSBasicParameter("9223372036854775807").toInt(), kMaxInt);
  EXPECT_EQ(AWSBasicParameter("-9223372036854775808").toInt(), kMinInt);
}

TEST(AWSBasicParameter, AnyOtherTextIsZero) {
  for (const char* text : {"", "+", "-", " 12", "12 ", "1_000", "0x10", "1.5",
                           "9223372036854775808", "-9223372036854775809", "abc"}) {
    EXPECT_EQ(AWSBasicParameter(text).toInt(), 0) << '"' << text << '"';
    EXPECT_EQ(textToInt(text), 0) << '"' << text << '"';
  }
}

TEST(AWSBasicParameter, KindsAreToldApart) {
  EXPECT_FALSE(integer(1) == unsignedInteger(1));
  EXPECT_FALSE(AWSBasicParameter(1.0) == AWSBasicParameter(1.0F));
  EXPECT_FALSE(AWSBasicParameter("1") == integer(1));
  EXPECT_EQ(integer(1).asText(), nullptr);
  EXPECT_NE(AWSBasicParameter(1.0F).asFloat(), nullptr);
  EXPECT_EQ(AWSBasicParameter(1.0F).asDouble(), nullptr);
}

TEST(AWSBasicParameterConvert, IntegerStaysAnInt) {
  EXPECT_EQ(converted(5), integer(5));
  EXPECT_EQ(converted(kMinInt), integer(kMinInt));
}

TEST(AWSBasicParameterConvert, BooleanBecomesOneOrZero) {
  EXPECT_EQ(converted(true), integer(1));
  EXPECT_EQ(converted(false), integer(0));
}

TEST(AWSBasicParameterConvert, IntegralRealWithinTheRangeBecomesAnInt) {
  EXPECT_EQ(converted(3.0), integer(3));
  EXPECT_EQ(converted(-0x1p63), integer(kMinInt));
  EXPECT_EQ(converted(-0.0), integer(0));
  EXPECT_EQ(converted(0x1p62), integer(std::int64_t{1} << 62));
}

TEST(AWSBasicParameterConvert, OtherRealStaysADouble) {
  EXPECT_EQ(converted(2.5), AWSBasicParameter(2.5));
  EXPECT_EQ(converted(0x1p63), AWSBasicParameter(0x1p63));
  EXPECT_EQ(converted(-0x1p64), AWSBasicParameter(-0x1p64));
  EXPECT_EQ(converted(1e300), AWSBasicParameter(1e300));
  EXPECT_EQ(converted(kInfinity), AWSBasicParameter(kInfinity));
  const AWSBasicParameter nan = converted(kNaN);
  ASSERT_NE(nan.asDouble(), nullptr);
  EXPECT_TRUE(std::isnan(*nan.asDouble()));
}

TEST(AWSBasicParameterConvert, RealWithAFloatsValueComesBackAsADouble) {
  EXPECT_EQ(converted(static_cast<double>(0.1F)), AWSBasicParameter(static_cast<double>(0.1F)));
}

TEST(AWSBasicParameterConvert, UnsignedIntegerWithinTheSignedRangeBecomesAnInt) {
  EXPECT_EQ(converted(std::uint64_t{5}), integer(5));
  EXPECT_EQ(converted(kTwoTo63 - 1), integer(kMaxInt));
}

TEST(AWSBasicParameterConvert, LargerUnsignedIntegerBecomesADoubleWhenThatHoldsItExactly) {
  EXPECT_EQ(converted(kTwoTo63), AWSBasicParameter(0x1p63));
  EXPECT_EQ(converted(kTwoTo63 + 2048), AWSBasicParameter(9223372036854777856.0));
  EXPECT_EQ(converted(std::numeric_limits<std::uint64_t>::max() - 2047),
            AWSBasicParameter(18446744073709549568.0));
}

TEST(AWSBasicParameterConvert, UnsignedIntegerThatNoDoubleHoldsStaysAUInt) {
  EXPECT_EQ(converted(kTwoTo63 + 1), unsignedInteger(kTwoTo63 + 1));
  EXPECT_EQ(converted(std::numeric_limits<std::uint64_t>::max()),
            unsignedInteger(std::numeric_limits<std::uint64_t>::max()));
}

TEST(AWSBasicParameterConvert, TextStaysAText) {
  EXPECT_EQ(converted("42"), AWSBasicParameter("42"));
  EXPECT_EQ(converted(""), AWSBasicParameter(""));
}

TEST(AWSBasicParameterConvert, AnythingElseBecomesTheEmptyText) {
  EXPECT_EQ(converted(Date{5}), AWSBasicParameter(""));
  EXPECT_EQ(converted(Data("bytes")), AWSBasicParameter(""));
  EXPECT_EQ(converted(Array{1, 2}), AWSBasicParameter(""));
  EXPECT_EQ(converted(Dictionary{{"a", 1}}), AWSBasicParameter(""));
  EXPECT_EQ(converted(Value()), AWSBasicParameter(""));
}

TEST(AWSBasicParameterConvert, KeysOfAllLevelsAreKeptWithEmptyMapsAmongThem) {
  const UntypedMap map = {
      {"a.jpg", {{"base", {{"file_path", "p"}, {"upload_count", 3}}}, {"extra", {}}}},
      {"b.jpg", {}},
  };
  const AWSLogMap expected = {
      {"a.jpg", {{"base", {{"file_path", "p"}, {"upload_count", integer(3)}}}, {"extra", {}}}},
      {"b.jpg", {}},
  };
  EXPECT_EQ(AWSBasicParameterConvert(map), expected);
  EXPECT_EQ(AWSBasicParameterConvert({}), AWSLogMap{});
}

}  // namespace
}  // namespace qx
