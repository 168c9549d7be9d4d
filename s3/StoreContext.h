// The parts that transfers share: those of one object store share its seams and clocks, those of
// one service configuration the credentials and the signer.
//
// Threads: StoreClocks and the signer may be used from any thread. The other parts never change.
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

/// The seconds by which the clocks of stores are ahead of ours, as each store has shown last. A
/// store is the host and port of its endpoint; its names for buckets and regions belong to the same
/// store.
///
/// Threads: every operation may be called from any thread.
class StoreClocks {
 public:
  /// The seconds for a store, or 0 for a store that has shown nothing.
  double offset(const StoreEndpoint& store);
  void learn(const StoreEndpoint& store, double offset);

 private:
  Mutex mutex_;
  std::map<std::string, double> offsets_ QX_GUARDED_BY(mutex_);
};

/// The seams that an object store uses. All of them must outlive its transfers, and the queue must
/// outlive the HTTP.
struct StoreSeams {
  Http& http;
  Digests& digests;
  PartFiles& files;
  DispatchQueue& completions;
  Clock& clock;
};

/// The parts that all transfers of a store share.
struct StoreContext {
  StoreContext(const StoreSeams& storeSeams, bool onlyStandstillCounts)
      : seams(storeSeams), countsStandstillOnly(onlyStandstillCounts) {}

  const StoreSeams seams;
  /// As in S3ObjectStore.
  const bool countsStandstillOnly;
  StoreClocks clocks;
};

/// A service configuration and everything that is made of its credentials. The utility and its
/// transfers share it, so that the credentials leave the memory together with the last of these.
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
