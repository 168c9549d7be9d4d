#include "platform/Hex.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>

namespace qx {
namespace {

TEST(Hex, BytesAreTwoLowerCaseDigitsEach) {
  EXPECT_EQ(hex(std::array{std::byte{0x00}, std::byte{0x0A}, std::byte{0xF9}, std::byte{0xFF}}),
            "000af9ff");
  EXPECT_EQ(hex({}), "");
}

TEST(Hex, ByteIsAppendedInEitherCase) {
  std::string text = "%";
  appendHex(text, std::byte{0xE9}, kUpperHex);
  appendHex(text, std::byte{0xBC}, kLowerHex);
  EXPECT_EQ(text, "%E9bc");
}

TEST(Hex, DigitOfEitherCaseHasItsValue) {
  EXPECT_EQ(hexValue('0'), 0);
  EXPECT_EQ(hexValue('9'), 9);
  EXPECT_EQ(hexValue('a'), 10);
  EXPECT_EQ(hexValue('f'), 15);
  EXPECT_EQ(hexValue('A'), 10);
  EXPECT_EQ(hexValue('F'), 15);
  for (const char c : {'/', ':', '@', 'G', '`', 'g', '\0', '\xE9'}) EXPECT_EQ(hexValue(c), -1);
}

}  // namespace
}  // namespace qx
