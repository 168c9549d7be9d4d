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

#include <map>
#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"
#include "platforms/shared/HttpEngine.h"
#include "s3/SigV4.h"
#include "s3/StoreAddress.h"

namespace qx {

/// How far the clocks of stores are ahead of ours, as each store last told.
class StoreClocks {
 public:
  /// Seconds; 0 for a store that has told nothing. A store is its endpoint's host and port; the
  /// names that it has for buckets and regions are the same store.
  double offset(const StoreEndpoint& store);
  /// False when no clock is plausibly that far off, and then nothing is learned. A wrong time zone
  /// makes 26 hours, a machine that goes on from a snapshot some days; a store that speaks of more
  /// is wrong itself, and a request signed for its time could be replayed then.
  bool learn(const StoreEndpoint& store, double offset);

 private:
  Mutex mutex_;
  std::map<std::string, double> offsets_ QX_GUARDED_BY(mutex_);
};

/// What all transfers share.
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
  const bool resourceTimeoutCountsStandstillOnly;
  SigV4Signer signer;
  StoreClocks clocks;
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
  const std::shared_ptr<StoreContext> context_;
  const StoreEndpoint endpoint_;
  const std::shared_ptr<const AWSServiceConfiguration> configuration_;
};

}  // namespace qx
