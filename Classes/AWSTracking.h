// Sends outcomes as tracking events to the host, and tags the items of uploaded images.
//
// Threads: no state. The operations run on the thread that delivers the outcome. The platform must
// outlive the object.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Task.h"
#include "platform/Platform.h"

namespace qx {

class AWSTracking {
 public:
  enum class Status { error, success };
  enum class ENVType { config, upload, backgroundUpload, download };

  explicit AWSTracking(const Platform& platform) : platform_(platform) {}

  /// Sends one "qx_aws" event, then tags the item that `extra` describes, if any.
  void action(std::optional<std::int64_t> code, const std::optional<std::string>& message,
              std::optional<bool> firstUpload, Status status, ENVType type,
              std::optional<double> uploadTime, const AWSParameterMap* extra) const;

  /// Tracks the outcome of an upload attempt. Items are tagged only after a success.
  void tracking(const AWSCallbackStatus& status, const Task& task, ENVType type,
                std::optional<double> uploadTime, const AWSParameterMap* extra) const;

  void trackingDownloadFailure(const std::optional<std::string>& filename,
                               std::optional<std::int64_t> code, const std::string& message) const;
  /// `duration` is in seconds.
  void trackingDownloadSuccess(const std::string& filename, double duration) const;

 private:
  void send(Dictionary event) const;

  const Platform& platform_;
};

}  // namespace qx
