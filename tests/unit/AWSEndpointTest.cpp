#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/ObjectStore.h"

namespace qx {
namespace {

std::int64_t typeOf(std::string_view name) {
  return static_cast<std::int64_t>(AWSEndpoint::regionTypeFromRegionName(name));
}

const std::vector<std::pair<std::string, std::int64_t>> kRegions = {
    {"us-east-1", 1},       {"us-east-2", 2},       {"us-west-1", 3},       {"us-west-2", 4},
    {"eu-west-1", 5},       {"eu-west-2", 6},       {"eu-central-1", 7},    {"ap-southeast-1", 9},
    {"ap-northeast-1", 10}, {"ap-northeast-2", 11}, {"ap-southeast-2", 12}, {"ap-south-1", 15},
    {"sa-east-1", 17},      {"cn-north-1", 18},     {"ca-central-1", 19},   {"us-gov-west-1", 21},
    {"cn-northwest-1", 22}, {"eu-west-3", 23},      {"us-gov-east-1", 24},  {"eu-north-1", 25},
    {"ap-east-1", 26},
};

TEST(AWSEndpoint, EachKnownRegionHasItsType) {
  for (const auto& [name, type] : kRegions) EXPECT_EQ(typeOf(name), type) << name;
}

TEST(AWSEndpoint, TableHasNoOtherRegions) {
  EXPECT_EQ(kAWSRegions.size(), kRegions.size());
}

TEST(AWSEndpoint, AnyOtherTextIsTheUnknownRegion) {
  for (const char* name : {"", "me-south-1", "US-EAST-1", "us-east-1 ", " us-east-1", "us-east",
                           "us-east-10", "unknown", "1"}) {
    EXPECT_EQ(typeOf(name), 0) << '"' << name << '"';
  }
}

}  // namespace
}  // namespace qx
