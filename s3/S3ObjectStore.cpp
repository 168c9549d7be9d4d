#include "s3/S3ObjectStore.h"

#include <algorithm>
#include <utility>

#include "s3/StoreAddress.h"
#include "s3/TransferUtility.h"

namespace qx {

S3ObjectStore::S3ObjectStore(const StoreSeams& seams, std::string globalEndpoint,
                             bool countsStandstillOnly)
    : globalEndpoint_(std::move(globalEndpoint)),
      context_(std::make_shared<StoreContext>(seams, countsStandstillOnly)) {}

std::optional<AWSServiceConfiguration> S3ObjectStore::makeServiceConfiguration(
    AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
    AWSBasicSessionCredentialsProvider credentials) {
  const auto known = std::find_if(kAWSRegions.begin(), kAWSRegions.end(),
                                  [region](const auto& entry) { return entry.second == region; });
  const bool named = region == AWSRegionType::unknown && canSignRegion(regionName);
  if (known == kAWSRegions.end() && !named) return std::nullopt;
  if (!StoreEndpoint::parse(endpoint.urlString)) return std::nullopt;
  AWSServiceConfiguration configuration;
  configuration.region = region;
  configuration.regionName = named ? regionName : known->first;
  configuration.endpoint = std::move(endpoint);
  configuration.credentials = std::move(credentials);
  return configuration;
}

void S3ObjectStore::registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                              const std::string& key) {
  auto endpoint = StoreEndpoint::parse(configuration.endpoint.urlString);
  // Nothing is registered for a configuration that makeServiceConfiguration would not have made.
  if (!endpoint) return;
  std::shared_ptr<AWSS3TransferUtility> utility =
      std::make_shared<TransferUtility>(context_, std::move(*endpoint), configuration);
  MutexLock lock(mutex_);
  std::swap(utilities_[key], utility);
}

std::shared_ptr<AWSS3TransferUtility> S3ObjectStore::S3TransferUtilityForKey(
    const std::string& key) {
  MutexLock lock(mutex_);
  const auto found = utilities_.find(key);
  return found == utilities_.end() ? nullptr : found->second;
}

void S3ObjectStore::removeS3TransferUtility(const std::string& key) {
  std::shared_ptr<AWSS3TransferUtility> utility;  // Destroyed after the lock is released.
  MutexLock lock(mutex_);
  const auto found = utilities_.find(key);
  if (found == utilities_.end()) return;
  std::swap(found->second, utility);
  utilities_.erase(found);
}

}  // namespace qx
