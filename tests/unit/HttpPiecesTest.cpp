// The small parts of HTTP: header fields, dates, addresses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/Headers.h"
#include "http/HttpDate.h"
#include "http/IpAddress.h"

namespace qx {
namespace {

using ::testing::ElementsAre;

TEST(HttpDate, ReadsTheThreeFormsOfRfc9110) {
  for (const char* text : {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT",
                           "Sun Nov  6 08:49:37 1994"}) {
    EXPECT_EQ(parseHttpDate(text), 784111777.0) << text;
  }
  EXPECT_EQ(parseHttpDate("Thu, 01 Jan 1970 00:00:00 GMT"), 0.0);
  EXPECT_EQ(parseHttpDate("Tue, 29 Feb 2028 23:59:60 GMT"), 1835481600.0);
}

TEST(HttpDate, RefusesWhatIsNoDate) {
  for (const char* text :
       {"", "yesterday", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 +0100",
        "Sun, 31 Feb 1994 08:49:37 GMT", "Sun, 06 Foo 1994 08:49:37 GMT",
        "Sun, 06 Nov 1994 24:00:00 GMT", "Sun, 06 Nov 1994 08:49 GMT",
        "Sun, -6 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 99999 08:49:37 GMT",
        "Sun, 06 Nov 1994 08:49:37 GMT and more"}) {
    EXPECT_EQ(parseHttpDate(text), std::nullopt) << text;
  }
}

TEST(HttpHeaders, SettingOneReplacesItsNameInAnyCase) {
  HTTPHeaders headers = {{"accept", "a"}, {"X", "1"}, {"Accept", "b"}};
  setHeader(headers, "ACCEPT", "c");
  EXPECT_THAT(headers, ElementsAre(std::pair<std::string, std::string>("X", "1"),
                                   std::pair<std::string, std::string>("ACCEPT", "c")));
}

TEST(HttpHeaders, FirstOfANameInAnyCaseIsFound) {
  const HTTPHeaders headers = {{"X", "1"}, {"accept", "a"}, {"Accept", "b"}};
  EXPECT_EQ(headerOf(headers, "ACCEPT"), "a");
  EXPECT_EQ(headerOf(headers, "Y"), std::nullopt);
}

TEST(HttpHeaders, OriginIsWhatStandsBeforePathAndQuery) {
  EXPECT_EQ(originOf("https://host:1/path"), "https://host:1");
  EXPECT_EQ(originOf("http://host?query"), "http://host");
  EXPECT_EQ(originOf("http://host"), "http://host");
}

// The expectations were made with Python's ipaddress module.
TEST(IpAddress, FourNumbersAreAVersion4Address) {
  for (const char* text : {"0.0.0.0", "127.0.0.1", "255.255.255.255"}) {
    EXPECT_TRUE(isIpv4Address(text)) << text;
  }
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "256.0.0.1", "01.2.3.4", "1..2.3", "1.2.3.",
                           ".1.2.3", "1.2.3.x", "1.2.3.-4", " 1.2.3.4"}) {
    EXPECT_FALSE(isIpv4Address(text)) << text;
  }
}

TEST(IpAddress, EightGroupsOrOneGapAreAVersion6Address) {
  for (const char* text :
       {"::", "::1", "1::", "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8", "fe80::1:2",
        "ABCD:ef01::", "::1.2.3.4", "1:2:3:4:5:6:1.2.3.4", "64:ff9b::192.0.2.33"}) {
    EXPECT_TRUE(isIpv6Address(text)) << text;
  }
  for (const std::string& text :
       {std::string(), std::string(":"), std::string(":::"), std::string("1:2:3:4:5:6:7"),
        std::string("1:2:3:4:5:6:7:8:9"), std::string("1::2::3"), std::string("12345::"),
        std::string("::g"), std::string(":1::"), std::string("1:"), std::string("::1:"),
        std::string("1:2:3:4:5:6:7:1.2.3.4"), std::string("::1.2.3"), std::string("1.2.3.4::"),
        std::string("1:2:3:4::5:6:7:8"), std::string("::1%lo"), std::string("::1\0", 4)}) {
    EXPECT_FALSE(isIpv6Address(text)) << text;
  }
}

}  // namespace
}  // namespace qx
