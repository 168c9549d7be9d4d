// The credentials that uploads and downloads use.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/UploadTokenModel.h"
#include "platform/Dispatch.h"
#include "platform/ObjectStore.h"

namespace qx {

/// AWSConfigure implements this interface. It stands above the units that use the interface.
class Credentials {
 public:
  /// Called once, on "com.aws.get.config", with (record, success) or (nothing, failure). It must
  /// not wait for another getConfig().
  using ConfigCallback =
      std::function<void(const std::optional<UploadTokenModel>&, const AWSCallbackStatus&)>;

  virtual ~Credentials() = default;
  /// Asks for the credentials of a scope. The identity is read from the host each time. The
  /// credentials of all scopes are fetched when there are none, when they belong to another
  /// identity, or when those of the scope have expired (to the instant) and `skipCheckExpiration`
  /// is false.
  virtual void getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback) = 0;
  /// The transfer utility that the latest fetch has registered for a scope, or null.
  virtual std::shared_ptr<AWSS3TransferUtility> transferUtility(const std::string& scope) = 0;
  /// The serial queue on which uploads are signed, hashed and sent, so that this work delays no
  /// request for credentials. Uploads leave in the order of their answers.
  virtual DispatchQueue& handOverQueue() = 0;
  /// True when uploads go through the host's upload server.
  virtual bool resizesOnServer() const = 0;
};

}  // namespace qx
