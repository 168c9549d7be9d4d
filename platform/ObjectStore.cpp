#include "platform/ObjectStore.h"

namespace qx {

AWSRegionType AWSEndpoint::regionTypeFromRegionName(std::string_view name) {
  for (const auto& [regionName, type] : kAWSRegions) {
    if (regionName == name) return type;
  }
  return AWSRegionType::unknown;
}

}  // namespace qx
