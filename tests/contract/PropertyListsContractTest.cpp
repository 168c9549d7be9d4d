// The contract of a writer and reader of property lists, for the simple one of the tests and the
// real one. Python's plistlib is the independent judge.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "contract/Python.h"
#include "fakes/SimpleFormats.h"
#include "platforms/shared/LibplistPropertyLists.h"

namespace qx {
namespace {

std::string document(PropertyLists& lists, const Value& value) {
  const auto element = lists.element(value);
  if (!element) return "<nothing>";
  return std::string(lists.documentStart()) + *element + std::string(lists.documentEnd());
}

/// A log as the library writes it.
Value sampleLog() {
  return Dictionary{
      {"a&b.jpg",
       Dictionary{{"base", Dictionary{{"file_path", "aws-0011/u1/a&b.jpg"},
                                      {"module_key", "avatar"},
                                      {"upload_count", 3}}},
                  {"extra", Dictionary{{"big", std::uint64_t{18446744073709551615U}},
                                       {"min", std::numeric_limits<std::int64_t>::min()},
                                       {"real", 0.1},
                                       {"huge", 1e22},
                                       {"text", "<h\xC3\xA9>\r\n\t\xF0\x9F\x93\xB7 &amp;"},
                                       {"empty", ""}}}}},
      {"b.png", Dictionary{{"base", Dictionary{}}, {"extra", Dictionary{}}}}};
}

/// Encodes a character by RFC 3629. A surrogate is encoded in the same way, although the result is
/// no valid UTF-8.
std::string utf8(char32_t c) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  const auto next = [&](int shift) { return byte(0x80 | ((c >> shift) & 0x3F)); };
  if (c < 0x80) return {byte(c)};
  if (c < 0x800) return {byte(0xC0 | (c >> 6)), next(0)};
  if (c < 0x10000) return {byte(0xE0 | (c >> 12)), next(6), next(0)};
  return {byte(0xF0 | (c >> 18)), next(12), next(6), next(0)};
}

template <typename T>
class PropertyListsContract : public testing::Test {
 protected:
  Value decoded(const std::string& bytes) {
    auto value = lists_.decode(Data(bytes));
    EXPECT_TRUE(value) << bytes;
    return value ? *value : Value("<refused>");
  }
  Value again(const Value& value) { return decoded(document(lists_, value)); }

  T lists_;
};

using Implementations = testing::Types<SimplePropertyLists, LibplistPropertyLists>;
TYPED_TEST_SUITE(PropertyListsContract, Implementations);

TYPED_TEST(PropertyListsContract, WhatItWritesItReads) {
  EXPECT_EQ(this->again(sampleLog()), sampleLog());
  const Value others =
      Array{true,    false, Data(std::string("\0\1\2x", 4)),    Data(), Date{1763683560},
            Array{}, -1,    std::uint64_t{9223372036854775808U}};
  EXPECT_EQ(this->again(others), others);
}

TYPED_TEST(PropertyListsContract, UnusualKeysReadBack) {
  for (const std::string& key :
       {std::string(), std::string(" "), std::string("\n"), std::string(" a\r\n<b>&amp; "),
        std::string("CF$UID"), std::string("\xF0\x9F\x93\xB7")}) {
    const Value alone = Dictionary{{"extra", Dictionary{{key, 5}}}};
    EXPECT_EQ(this->again(alone), alone) << '"' << key << '"';
    const Value among =
        Dictionary{{"extra", Dictionary{{"a", "x"}, {key, "text"}, {"z", true}}}, {"zz", 1}};
    EXPECT_EQ(this->again(among), among) << '"' << key << '"';
  }
}

TYPED_TEST(PropertyListsContract, RealsReadBackToTheSameDouble) {
  for (const double number : {0.0, 1.0, -2.5, 0.1, 1e22, 1e-5, 5e-324, 2.2250738585072014e-308,
                              1.7976931348623157e308, 123456789.123456789, 1792836000.25}) {
    EXPECT_EQ(this->again(number), Value(number)) << number;
  }
  const Value negativeZero = this->again(-0.0);
  ASSERT_NE(negativeZero.asDouble(), nullptr);
  EXPECT_TRUE(std::signbit(*negativeZero.asDouble()));
  EXPECT_EQ(this->again(std::numeric_limits<double>::infinity()),
            Value(std::numeric_limits<double>::infinity()));
  const Value nan = this->again(std::nan(""));
  ASSERT_NE(nan.asDouble(), nullptr);
  EXPECT_TRUE(std::isnan(*nan.asDouble()));
}

TYPED_TEST(PropertyListsContract, PiecesMakeADocument) {
  const std::string text = std::string(this->lists_.documentStart()) + "<dict>\n" +
                           *this->lists_.key("a<b") + *this->lists_.element(Array{1, "x"}) +
                           *this->lists_.key("c") + *this->lists_.element(Dictionary{}) +
                           "</dict>\n" + std::string(this->lists_.documentEnd());
  EXPECT_EQ(this->decoded(text), Value(Dictionary{{"a<b", Array{1, "x"}}, {"c", Dictionary{}}}));
}

// The characters of XML 1.0 are #x9, #xA, #xD, #x20 to #xD7FF, #xE000 to #xFFFD and #x10000 to
// #x10FFFF. A log stays readable because no other character is written and each of these is read.
TYPED_TEST(PropertyListsContract, WritesExactlyTheCharactersOfXmlAndReadsEachBack) {
  const auto isXml = [](char32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || c >= 0x10000;
  };
  constexpr char32_t kAtOnce = 4096;
  for (char32_t first = 0; first <= 0x10FFFF; first += kAtOnce) {
    std::string all;
    for (char32_t c = first; c < first + kAtOnce; ++c) {
      // Beyond the first two planes, every 61st character stands for the others.
      if (c >= 0x20000 && c % 61 != 0) continue;
      const std::string character = utf8(c);
      EXPECT_EQ(this->lists_.element(character).has_value(), isXml(c)) << std::hex << int(c);
      EXPECT_EQ(this->lists_.key(character).has_value(), isXml(c)) << std::hex << int(c);
      if (isXml(c)) all += character;
    }
    const Value both = Dictionary{{all, all}};
    EXPECT_EQ(this->again(both), both) << std::hex << int(first);
  }
}

TYPED_TEST(PropertyListsContract, WritesNothingThatXmlCannotHold) {
  for (const std::string& text :
       {std::string("\x01"), std::string("a\0b", 3), std::string("\x1F"), std::string("\xFF"),
        std::string("\xC0\x80"), std::string("\xED\xA0\x80"), std::string("\xEF\xBF\xBE"),
        std::string("\xEF\xBF\xBF"), std::string("\xF4\x90\x80\x80"), std::string("\xE2\x82")}) {
    EXPECT_FALSE(this->lists_.element(text));
    EXPECT_FALSE(this->lists_.key(text));
    EXPECT_FALSE(this->lists_.element(Dictionary{{text, 1}}));
    EXPECT_FALSE(this->lists_.element(Array{Dictionary{{"k", text}}}));
  }
  EXPECT_FALSE(this->lists_.element(Value()));
  EXPECT_FALSE(this->lists_.element(Value::callback(std::function<void()>([] {}))));
}

TYPED_TEST(PropertyListsContract, PythonReadsWhatItWrites) {
  const std::string script = R"(
import plistlib, sys
log = plistlib.load(open(sys.argv[1], "rb"))
entry = log["a&b.jpg"]
assert sorted(log) == ["a&b.jpg", "b.png"], log
assert entry["base"] == {"file_path": "aws-0011/u1/a&b.jpg", "module_key": "avatar", "upload_count": 3}, entry
assert entry["extra"] == {"big": 2**64 - 1, "min": -2**63, "real": 0.1, "huge": 1e22,
                          "text": "<h\u00e9>\r\n\t\U0001F4F7 &amp;", "empty": ""}, entry
assert type(entry["extra"]["huge"]) is float
assert log["b.png"] == {"base": {}, "extra": {}}, log
open(sys.argv[2], "w").write("ok")
)";
  EXPECT_EQ(runPython(script, document(this->lists_, sampleLog())), "ok");
}

TYPED_TEST(PropertyListsContract, ReadsTheXmlThatPythonWrites) {
  const std::string script = R"(
import plistlib, sys, datetime
plistlib.dump({"base": {"upload_count": 2, "big": 2**64 - 1, "neg": -5, "real": 2.5, "on": True},
               "text": "<h\u00e9>\n&\U0001F4F7", "data": b"\x00\x01x", "list": [[], {}],
               "date": datetime.datetime(2026, 11, 21, 0, 6, 0)}, open(sys.argv[2], "wb"))
)";
  const Value expected =
      Dictionary{{"base", Dictionary{{"upload_count", 2},
                                     {"big", std::uint64_t{18446744073709551615U}},
                                     {"neg", -5},
                                     {"real", 2.5},
                                     {"on", true}}},
                 {"text", "<h\xC3\xA9>\n&\xF0\x9F\x93\xB7"},
                 {"data", Data(std::string("\0\1x", 3))},
                 {"list", Array{Array{}, Dictionary{}}},
                 {"date", Date{1795219560}}};
  EXPECT_EQ(this->decoded(runPython(script, "")), expected);
}

TYPED_TEST(PropertyListsContract, RefusesWhatIsNoPropertyList) {
  for (const char* text :
       {"", "x", "{", "<plist>", "<plist version=\"1.0\"></plist>",
        "<plist version=\"1.0\"><dict></plist>", "bplist00", "bplist00garbage"}) {
    EXPECT_FALSE(this->lists_.decode(Data(text))) << text;
  }
}

TYPED_TEST(PropertyListsContract, RefusesEndlessNesting) {
  std::string text(this->lists_.documentStart());
  for (int i = 0; i < 200'000; ++i) text += "<array>";
  EXPECT_FALSE(this->lists_.decode(Data(text)));
  for (int i = 0; i < 200'000; ++i) text += "</array>";
  text += this->lists_.documentEnd();
  EXPECT_FALSE(this->lists_.decode(Data(text)));
}

TYPED_TEST(PropertyListsContract, NoDamageToALogCrashesTheReader) {
  const std::string log = document(this->lists_, sampleLog());
  for (std::size_t i = 0; i < log.size(); ++i) {
    (void)this->lists_.decode(Data(log.substr(0, i)));
    for (const int mask : {0x01, 0x04, 0x10, 0x20, 0x80, 0xFF}) {
      std::string flipped = log;
      flipped[i] = static_cast<char>(flipped[i] ^ mask);
      (void)this->lists_.decode(Data(flipped));
    }
  }
}

// ---- What only the real reader does

const char kBinaryScript[] = R"(
import plistlib, sys, datetime
plistlib.dump({"base": {"upload_count": 2, "big": 2**64 - 1, "neg": -5, "real": 2.5, "on": True},
               "text": "<h\u00e9>\n&\U0001F4F7", "data": b"\x00\x01x", "list": [[], {}, ["x"] * 20],
               "date": datetime.datetime(2026, 11, 21, 0, 6, 0)},
              open(sys.argv[2], "wb"), fmt=plistlib.FMT_BINARY)
)";

TEST(LibplistPropertyLists, ReadsTheBinaryFormThatPythonWrites) {
  LibplistPropertyLists lists;
  const auto value = lists.decode(Data(runPython(kBinaryScript, "")));
  ASSERT_TRUE(value);
  EXPECT_EQ(*value,
            Value(Dictionary{{"base", Dictionary{{"upload_count", 2},
                                                 {"big", std::uint64_t{18446744073709551615U}},
                                                 {"neg", -5},
                                                 {"real", 2.5},
                                                 {"on", true}}},
                             {"text", "<h\xC3\xA9>\n&\xF0\x9F\x93\xB7"},
                             {"data", Data(std::string("\0\1x", 3))},
                             {"list", Array{Array{}, Dictionary{}, Array(20, Value("x"))}},
                             {"date", Date{1795219560}}}));
}

TEST(LibplistPropertyLists, NoDamageToABinaryListCrashesTheReader) {
  LibplistPropertyLists lists;
  const std::string sample = runPython(kBinaryScript, "");
  ASSERT_TRUE(sample.starts_with("bplist00"));
  for (std::size_t i = 0; i < sample.size(); ++i) {
    EXPECT_FALSE(lists.decode(Data(sample.substr(0, i)))) << "cut off at " << i;
    for (const int mask : {1, 2, 4, 8, 16, 32, 64, 128, 255, static_cast<int>(sample[i])}) {
      std::string changed = sample;
      changed[i] = static_cast<char>(changed[i] ^ mask);  // The last mask makes the byte 0.
      (void)lists.decode(Data(changed));
    }
  }
}

/// A binary list of `levels` arrays, each of which holds the next one `copies` times.
std::string nestedBinary(int levels, int copies) {
  std::string bytes = "bplist00";
  std::string table;
  for (int level = 0; level < levels; ++level) {
    table += static_cast<char>(bytes.size() >> 8);
    table += static_cast<char>(bytes.size() & 0xFF);
    bytes += static_cast<char>(0xA0 | (level + 1 < levels ? copies : 0));
    for (int copy = 0; level + 1 < levels && copy < copies; ++copy) {
      bytes += static_cast<char>((level + 1) >> 8);
      bytes += static_cast<char>((level + 1) & 0xFF);
    }
  }
  const std::size_t tableAt = bytes.size();
  bytes += table + std::string(6, '\0') + "\x02\x02";
  const auto number = [&](std::size_t value) {
    for (int shift = 56; shift >= 0; shift -= 8)
      bytes += static_cast<char>((value >> shift) & 0xFF);
  };
  number(static_cast<std::size_t>(levels));
  number(0);
  number(tableAt);
  return bytes;
}

TEST(LibplistPropertyLists, ReadsABinaryListOfModestDepth) {
  LibplistPropertyLists lists;
  EXPECT_TRUE(lists.decode(Data(nestedBinary(100, 1))));
}

TEST(LibplistPropertyLists, RefusesABinaryListOfEndlessDepth) {
  LibplistPropertyLists lists;
  EXPECT_FALSE(lists.decode(Data(nestedBinary(9000, 1))));
}

TEST(LibplistPropertyLists, RefusesABinaryListThatGrowsWithoutEnd) {
  LibplistPropertyLists lists;
  EXPECT_FALSE(lists.decode(Data(nestedBinary(60, 14))));
}

}  // namespace
}  // namespace qx
