// What transfers share: those of one object store its seams and clocks, those of one service
// configuration the credentials and the signer.
//
// Threads: StoreClocks and the signer may be used from any thread; the rest never changes.
#pragma once

#include <map>
#include <string>
#include <utility>

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
      : seams(storeSeams), countsStandstillOnly(onlyStandstillCounts) {}

  const StoreSeams seams;
  /// See S3ObjectStore.
  const bool countsStandstillOnly;
  StoreClocks clocks;
};

/// One service configuration with all that is made of its credentials. The utility and its
/// transfers share it, so that the credentials leave the memory with the last of them.
struct StoreAccount {
  StoreAccount(AWSServiceConfiguration serviceConfiguration, Digests& digests)
      : configuration(std::move(serviceConfiguration)),
        secrets({configuration.credentials.accessKey, configuration.credentials.secretKey,
                 configuration.credentials.sessionToken}),
        signer(digests) {}

  const AWSServiceConfiguration configuration;
  const SecretsInForce::Holder secrets;
  SigV4Signer signer;
};

}  // namespace qx
