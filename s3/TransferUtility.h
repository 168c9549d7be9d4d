// The transfer utility: uploads and downloads of objects.
//
// One transfer is one or more signed requests. TransferRules.h decides after each answer; this
// sends, stores what comes, and reports.
//
// Threads: as in ObjectStore.h. Completions and progress run on the context's queue, except the
// completion of an upload that succeeded, which runs on the thread of the HTTP handlers. Payloads
// of more than 16 KiB that have to be hashed are hashed on the queue, smaller ones on the caller's
// thread.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "http/Redaction.h"
#include "platform/Clock.h"
#include "platform/Digests.h"
#include "platform/Dispatch.h"
#include "platform/Http.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"
#include "platform/PartFile.h"
#include "s3/SigV4.h"
#include "s3/StoreAddress.h"

namespace qx {

/// How far the clocks of stores are ahead of ours, as each store last told. A store is its
/// endpoint's host and port; the names that it has for buckets and regions are the same store.
///
/// Threads: every operation may be called from any thread.
class StoreClocks {
 public:
  /// Seconds; 0 for a store that has told nothing.
  double offset(const StoreEndpoint& store);
  void learn(const StoreEndpoint& store, double offset);

 private:
  Mutex mutex_;
  std::map<std::string, double> offsets_ QX_GUARDED_BY(mutex_);
};

/// What an object store stands on. All of it must outlive its transfers; the queue also the HTTP.
struct StoreSeams {
  Http& http;
  Digests& digests;
  PartFiles& files;
  DispatchQueue& completions;
  Clock& clock;
};

/// What all transfers of a store share.
struct StoreContext {
  StoreContext(const StoreSeams& storeSeams, bool onlyStandstillCounts)
      : seams(storeSeams), countsStandstillOnly(onlyStandstillCounts), signer(seams.digests) {}

  const StoreSeams seams;
  /// See S3ObjectStore.
  const bool countsStandstillOnly;
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
  /// The configuration's credentials, in force as long as transfers may begin.
  const SecretsInForce::Holder secrets_;
};

}  // namespace qx
