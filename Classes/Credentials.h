// What an upload or a download needs of the session that it runs in.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/UploadTokenModel.h"
#include "platform/ObjectStore.h"

namespace qx {

/// Implemented by AWSConfigure, which stands above the units that use it.
class Credentials {
 public:
  /// Called once, on "com.aws.get.config": (record, success) or (nothing, failure). Must not wait
  /// for another getConfig.
  using ConfigCallback =
      std::function<void(const std::optional<UploadTokenModel>&, const AWSCallbackStatus&)>;

  virtual ~Credentials() = default;
  /// The credentials of a scope. Reads the identity from the host each time and fetches the map
  /// when it is missing, belongs to another identity, or the scope's credential has expired (to the
  /// very instant), unless `skipCheckExpiration`.
  virtual void getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback) = 0;
  /// The transfer utility that the newest fetch has registered for a scope, or null.
  virtual std::shared_ptr<AWSS3TransferUtility> transferUtility(const std::string& scope) = 0;
  /// Uploads go through the host's upload server.
  virtual bool resizesOnServer() const = 0;
};

}  // namespace qx
