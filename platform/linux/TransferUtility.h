// The transfer utility: uploads and downloads of objects over the HTTP engine.
//
// One transfer is one or more signed requests: redirects within the store are followed, a refused
// clock is corrected, and failures that another attempt may cure are repeated, all within the
// configuration's limits.
//
// Threads: as in ObjectStore.h; completions and progress run on the context's queue, but for an
// upload that succeeded, which is reported on the engine's thread. Payloads that
// have to be hashed are hashed there too, but for small ones that cost the caller less than the way
// there; never on the engine's thread.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/ObjectStore.h"
#include "platform/linux/HttpEngine.h"
#include "platform/linux/SigV4.h"
#include "platform/linux/StoreAddress.h"

namespace qx {

/// What all transfers of one store share.
class StoreContext {
 public:
  StoreContext(HttpEngine& httpEngine, DispatchQueue& completionQueue, Clock& systemClock,
               bool onlyStandstillCounts)
      : engine(httpEngine),
        completions(completionQueue),
        clock(systemClock),
        resourceTimeoutCountsStandstillOnly(onlyStandstillCounts) {}

  HttpEngine& engine;
  DispatchQueue& completions;
  Clock& clock;
  SigV4Signer signer;
  /// Seconds that the store's clock is ahead of ours, as it last told.
  std::atomic<double> clockOffset = 0;
};

class TransferUtility : public AWSS3TransferUtility {
 public:
  TransferUtility(std::shared_ptr<StoreContext> context, StoreEndpoint endpoint,
                  AWSServiceConfiguration configuration);

  AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                     const std::string& contentType, UploadCompletion completionHandler) override;
  AWSTask downloadToURL(const Url& location, const std::string& bucket, const std::string& key,
                        AWSS3TransferUtilityDownloadExpression expression,
                        DownloadCompletion completionHandler) override;

 private:
  const bool resourceTimeoutCountsStandstillOnly;
  const std::shared_ptr<StoreContext> context_;
  const StoreEndpoint endpoint_;
  const std::shared_ptr<const AWSServiceConfiguration> configuration_;
};

}  // namespace qx
