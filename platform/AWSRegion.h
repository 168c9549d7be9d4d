// Region names of the object store and the region types they stand for.
//
// A pure table, readable from any thread. Shared by the library, which maps the backend's region
// name to a type, and by the platform, which signs with the name.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace qx {

/// The integer values that a service configuration takes; 0 is an unknown region.
enum class AWSRegionType : std::int64_t { unknown = 0 };

/// The values have gaps and do not follow the names; they are the object-store SDK's own.
inline constexpr std::array<std::pair<std::string_view, AWSRegionType>, 21> kAWSRegions = {{
    {"us-east-1", AWSRegionType{1}},       {"us-east-2", AWSRegionType{2}},
    {"us-west-1", AWSRegionType{3}},       {"us-west-2", AWSRegionType{4}},
    {"eu-west-1", AWSRegionType{5}},       {"eu-west-2", AWSRegionType{6}},
    {"eu-central-1", AWSRegionType{7}},    {"ap-southeast-1", AWSRegionType{9}},
    {"ap-northeast-1", AWSRegionType{10}}, {"ap-northeast-2", AWSRegionType{11}},
    {"ap-southeast-2", AWSRegionType{12}}, {"ap-south-1", AWSRegionType{15}},
    {"sa-east-1", AWSRegionType{17}},      {"cn-north-1", AWSRegionType{18}},
    {"ca-central-1", AWSRegionType{19}},   {"us-gov-west-1", AWSRegionType{21}},
    {"cn-northwest-1", AWSRegionType{22}}, {"eu-west-3", AWSRegionType{23}},
    {"us-gov-east-1", AWSRegionType{24}},  {"eu-north-1", AWSRegionType{25}},
    {"ap-east-1", AWSRegionType{26}},
}};

/// True when `name` can stand in the scope of a request signature: letters, digits, "-", "_" and
/// ".", at most 64 of them. Stores have region names beyond the table: "auto", "garage".
inline bool canSignRegion(std::string_view name) {
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
  });
}

}  // namespace qx
