// The object store on Linux: service configurations and the registry of transfer utilities.
//
// Threads: every operation may be called from any thread. Completions and progress blocks run on
// the completion queue, but for uploads that succeeded (TransferUtility.h).
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"
#include "platforms/shared/HttpEngine.h"

namespace qx {

class StoreContext;

class LinuxObjectStore : public ObjectStore {
 public:
  /// The engine, the queue and the clock must outlive all transfers; the queue also the engine.
  /// The last argument is LinuxSettings::resourceTimeoutCountsStandstillOnly.
  LinuxObjectStore(HttpEngine& engine, DispatchQueue& completions, Clock& clock,
                   std::string globalEndpoint, bool resourceTimeoutCountsStandstillOnly = false);
  ~LinuxObjectStore() override;

  std::string globalEndpoint() override { return globalEndpoint_; }
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;

 private:
  const std::string globalEndpoint_;
  const std::shared_ptr<StoreContext> context_;
  Mutex mutex_;
  std::map<std::string, std::shared_ptr<AWSS3TransferUtility>> utilities_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
