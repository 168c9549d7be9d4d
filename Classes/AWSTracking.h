// Outcomes as tracking events of the host, and the tags of uploaded item images.
//
// Threads: no state; called on whatever thread delivers the outcome.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Task.h"

namespace qx {

class AWSTracking {
 public:
  enum class Status { error, success };
  enum class ENVType { config, upload, backgroundUpload, download };

  /// Sends one "qx_aws" event, then tags the item that `extra` describes, if any.
  static void action(std::optional<std::int64_t> code, const std::optional<std::string>& message,
                     std::optional<bool> firstUpload, Status status, ENVType type,
                     std::optional<double> uploadTime, const AWSParameterMap* extra);

  /// After an upload attempt. Items are tagged after a success only.
  static void tracking(const AWSCallbackStatus& status, const Task& task, ENVType type,
                       std::optional<double> uploadTime, const AWSParameterMap* extra);

  static void trackingDownloadFailure(const std::optional<std::string>& filename,
                                      std::optional<std::int64_t> code, const std::string& message);
  /// `duration` in seconds.
  static void trackingDownloadSuccess(const std::string& filename, double duration);
};

}  // namespace qx
