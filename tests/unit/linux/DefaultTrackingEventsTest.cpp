#include "platforms/shared/DefaultTrackingEvents.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

namespace qx {
namespace {

TEST(DefaultTrackingEvents, WhatJsonCanHoldStaysAsItIs) {
  const Dictionary values = {{"a", Array{1, 2.5, "x", true, Value()}},
                             {"b", Dictionary{{"u", std::uint64_t{18446744073709551615U}}}}};
  EXPECT_EQ(DefaultTrackingEvents().anyCodable(values), values);
}

TEST(DefaultTrackingEvents, DatesBecomeRfc3339Text) {
  const auto values = DefaultTrackingEvents().anyCodable(
      {{"list", Array{Date{0}, Date{1795219560.25}, Date{-0.5}}}});
  ASSERT_TRUE(values);
  EXPECT_EQ(values->at("list"), Value(Array{"1970-01-01T00:00:00.000Z", "2026-11-21T00:06:00.250Z",
                                            "1969-12-31T23:59:59.500Z"}));
}

TEST(DefaultTrackingEvents, WhatJsonCannotHoldMakesTheWholeMapNothing) {
  const auto refused = [](Value value) {
    return !DefaultTrackingEvents().anyCodable({{"ok", 1}, {"x", Array{std::move(value)}}});
  };
  EXPECT_TRUE(refused(Data(std::string("x"))));
  EXPECT_TRUE(refused(Value::callback(std::function<void()>([] {}))));
  EXPECT_TRUE(refused(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_TRUE(refused(-std::numeric_limits<double>::infinity()));
  EXPECT_TRUE(refused(Date{1e18}));
  EXPECT_FALSE(refused(1));
}

}  // namespace
}  // namespace qx
