// An object store that speaks S3: service configurations and the registry of transfer utilities.
//
// Threads: every operation may be called from any thread. Completions and progress blocks run on
// the completion queue, except the completions of successful uploads (see TransferUtility.h).
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Mutex.h"
#include "platform/ObjectStore.h"
#include "s3/StoreContext.h"

namespace qx {

class S3ObjectStore : public ObjectStore {
 public:
  /// With `countsStandstillOnly` the resource timeout of a configuration counts only time in which
  /// no byte of an object moves.
  S3ObjectStore(const StoreSeams& seams, std::string globalEndpoint,
                bool countsStandstillOnly = false);

  std::string globalEndpoint() override { return globalEndpoint_; }
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;
  void removeS3TransferUtility(const std::string& key) override;

 private:
  const std::string globalEndpoint_;
  const std::shared_ptr<StoreContext> context_;
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<AWSS3TransferUtility>> utilities_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
