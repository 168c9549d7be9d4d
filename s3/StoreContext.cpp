#include "s3/StoreContext.h"

namespace qx {

double StoreClocks::offset(const StoreEndpoint& store) {
  MutexLock lock(mutex_);
  const auto known = offsets_.find(store.authority());
  return known == offsets_.end() ? 0 : known->second;
}

void StoreClocks::learn(const StoreEndpoint& store, double offset) {
  MutexLock lock(mutex_);
  offsets_[store.authority()] = offset;
}

}  // namespace qx
