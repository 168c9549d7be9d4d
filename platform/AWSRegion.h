// The region names of the object store and their region types. The library maps the backend's
// region name to a type; the platform signs with the name.
//
//     canSignRegion("garage");   // True, although the table does not have this region.
//     canSignRegion("eu west");  // False: a signature cannot hold the blank.
//
// Threads: a constant table and a pure function.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace qx {

/// The integer values of a service configuration. 0 is an unknown region.
enum class AWSRegionType : std::int64_t { unknown = 0 };

/// The values have gaps and another order than the names, because the object-store SDK defines
/// them.
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

/// True when the scope of a request signature can hold `name`: 1 to 64 letters, digits, "-", "_"
/// and ".". Some stores have region names that the table lacks, such as "auto" and "garage".
inline bool canSignRegion(std::string_view name) {
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
  });
}

}  // namespace qx
