// The contract of a JSON encoder and decoder, for the simple one of the tests and the real one.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "fakes/SimpleFormats.h"
#include "platforms/shared/NlohmannJson.h"

namespace qx {
namespace {

template <typename T>
class JsonContract : public testing::Test {
 protected:
  std::string encoded(const Value& value) { return json_.encode(value).value_or("<nothing>"); }
  Value decoded(const std::string& text) {
    auto value = json_.decode(Data(text));
    EXPECT_TRUE(value) << text;
    return value ? *value : Value("<refused>");
  }
  bool refuses(const std::string& text) { return !json_.decode(Data(text)); }

  T json_;
};

using Implementations = testing::Types<SimpleJson, NlohmannJson>;
TYPED_TEST_SUITE(JsonContract, Implementations);

TYPED_TEST(JsonContract, EncodesCompactWithEscapedSlashes) {
  EXPECT_EQ(this->encoded(Array{"a", "b/c"}), R"(["a","b\/c"])");
  EXPECT_EQ(this->encoded(Array{}), "[]");
  EXPECT_EQ(this->encoded(Dictionary{}), "{}");
  EXPECT_EQ(this->encoded(Dictionary{{"b", 1}, {"a/", Array{true, false, Value()}}}),
            R"({"a\/":[true,false,null],"b":1})");
}

TYPED_TEST(JsonContract, EncodesOrderedMembersInTheirOrder) {
  EXPECT_EQ(this->json_.encode(OrderedMembers{{"z", 1}, {"a", "x"}}), R"({"z":1,"a":"x"})");
  EXPECT_EQ(this->json_.encode(OrderedMembers{}), "{}");
}

TYPED_TEST(JsonContract, EncodesNumbersExactly) {
  EXPECT_EQ(this->encoded(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(this->encoded(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(this->encoded(0.1), "0.1");
  EXPECT_EQ(this->encoded(2.5), "2.5");
}

TYPED_TEST(JsonContract, EscapesWhatATextMustEscape) {
  EXPECT_EQ(this->encoded("\"\\\b\f\n\r\t\x01"), R"("\"\\\b\f\n\r\t\u0001")");
  EXPECT_EQ(this->encoded("h\xC3\xA9 \xF0\x9F\x93\xB7"), "\"h\xC3\xA9 \xF0\x9F\x93\xB7\"");
}

TYPED_TEST(JsonContract, EncodesNothingThatIsNoJson) {
  EXPECT_FALSE(this->json_.encode(Value(Data("x"))));
  EXPECT_FALSE(this->json_.encode(Value(Date{1})));
  EXPECT_FALSE(this->json_.encode(Value::callback(std::function<void()>([] {}))));
  EXPECT_FALSE(this->json_.encode(Value(std::nan(""))));
  EXPECT_FALSE(this->json_.encode(Value(std::numeric_limits<double>::infinity())));
  EXPECT_FALSE(this->json_.encode(Value("\xFF")));
  EXPECT_FALSE(this->json_.encode(Value("\xED\xA0\x80"))) << "a surrogate";
  EXPECT_FALSE(this->json_.encode(Array{1, Data("x")}));
  EXPECT_FALSE(this->json_.encode(Dictionary{{"\xC0\x80", 1}})) << "an overlong form";
}

TYPED_TEST(JsonContract, DecodesEachKind) {
  const Value expected = Dictionary{{"a", Array{1, -2, 2.5, true, false, Value(), "x"}},
                                    {"b", Dictionary{{"c", Array{}}}}};
  EXPECT_EQ(this->decoded(" {\"a\" : [1,-2,2.5,true,false,null,\"x\"],\n\t\"b\":{\"c\":[]}} "),
            expected);
  EXPECT_EQ(this->decoded("\"top\""), Value("top"));
}

TYPED_TEST(JsonContract, DecodesIntegersAsSignedThenUnsignedThenDouble) {
  EXPECT_EQ(this->decoded("9223372036854775807"), Value(std::int64_t{9223372036854775807}));
  EXPECT_EQ(this->decoded("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(this->decoded("9223372036854775808"), Value(std::uint64_t{9223372036854775808U}));
  EXPECT_EQ(this->decoded("18446744073709551615"),
            Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(this->decoded("18446744073709551616"), Value(18446744073709551616.0));
  EXPECT_EQ(this->decoded("1.0"), Value(1.0));
  EXPECT_EQ(this->decoded("1e2"), Value(100.0));
}

TYPED_TEST(JsonContract, DecodesEscapes) {
  EXPECT_EQ(this->decoded(R"("\"\\\/\b\f\n\r\tA\u00e9\ud83d\udcf7")"),
            Value("\"\\/\b\f\n\r\tA\xC3\xA9\xF0\x9F\x93\xB7"));
}

TYPED_TEST(JsonContract, RefusesWhatIsNoJson) {
  for (const char* text :
       {"",         " ",   "{",          "[1,]", "{\"a\":}", "{a:1}",   "nul",         "01",
        "1.",       "+1",  "'a'",        "\"a",  "[1] 2",    "\"\\x\"", "\"\\ud800\"", "\"\xFF\"",
        "\"\x01\"", "NaN", "{\"a\":1,}", "]",    "1e999"}) {
    EXPECT_TRUE(this->refuses(text)) << text;
  }
}

TYPED_TEST(JsonContract, TheErrorDoesNotTellTheContent) {
  const auto refused = this->json_.decode(Data("{\"access_key_secret\": geheim}"));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().domain, "Json");
  EXPECT_EQ(refused.error().description.find("geheim"), std::string::npos);
  EXPECT_EQ(refused.error().description.find("secret"), std::string::npos);
}

TYPED_TEST(JsonContract, RefusesNestingDeeperThan128) {
  EXPECT_FALSE(this->refuses(std::string(128, '[') + std::string(128, ']')));
  EXPECT_TRUE(this->refuses(std::string(129, '[') + std::string(129, ']')));
  EXPECT_TRUE(this->refuses(std::string(1'000'000, '[')));
}

TYPED_TEST(JsonContract, WhatItEncodesItDecodes) {
  const Value value = Dictionary{{"", ""},
                                 {"n", Array{0, -1, 1e300, 5e-324, 0.1}},
                                 {"u", std::numeric_limits<std::uint64_t>::max()},
                                 {"t", "\xE2\x80\xA8/\\\"\x7F"}};
  EXPECT_EQ(this->decoded(this->encoded(value)), value);
}

TYPED_TEST(JsonContract, NoDamageToATextCrashesTheDecoder) {
  const std::string sample =
      R"({"upload_token_map":{"avatar":{"n":-1.5e3,"t":["\u00e9\ud83d\udcf7\/",null,true]}}})";
  for (std::size_t i = 0; i < sample.size(); ++i) {
    (void)this->json_.decode(Data(sample.substr(0, i)));
    for (int bit = 0; bit < 8; ++bit) {
      std::string flipped = sample;
      flipped[i] = static_cast<char>(flipped[i] ^ (1 << bit));
      const auto value = this->json_.decode(Data(flipped));
      if (value) (void)this->json_.encode(*value);
    }
    EXPECT_TRUE(this->refuses(sample.substr(0, i))) << "cut off at " << i;
  }
}

}  // namespace
}  // namespace qx
