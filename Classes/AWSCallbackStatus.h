// The outcome of an operation, inside the library and as the host gets it.
//
//     const Error error = uploaderError(AWSErrorCode::keyNotMatch, "no such scope");
//     error.domain == kUploaderErrorDomain;  // "AWSUploaderError"
//     errorCodeFromRawValue(error.code);     // AWSErrorCode::keyNotMatch
//
// Threads: plain values.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Export.h"

namespace qx {

enum class AWSErrorCode : std::int64_t {
  unknown = 0,
  redirection = 1,
  clientError = 2,
  serverError = 3,
  localFileNotFound = 4,
  noConfigured = 100,
  keyNotMatch = 101,
  missParamters = 102,
};

/// The case with this raw value, or nothing for any other number.
QX_EXPORT std::optional<AWSErrorCode> errorCodeFromRawValue(std::int64_t rawValue);

/// Success, or a failure with its code and message.
class QX_EXPORT AWSCallbackStatus {
 public:
  static AWSCallbackStatus success() { return {}; }
  /// `backendStatus` is the HTTP status with which the backend has refused credentials, or 0.
  static AWSCallbackStatus failure(AWSErrorCode code, std::string message, int backendStatus = 0);

  bool succeeded() const { return !failure_; }
  // Call these only for a failure.
  AWSErrorCode code() const { return failure_->code; }
  const std::string& message() const { return failure_->message; }
  /// The HTTP status of the backend, or 0 when its answer was not the reason.
  int backendStatus() const { return failure_->backendStatus; }

  friend bool operator==(const AWSCallbackStatus&, const AWSCallbackStatus&) = default;

 private:
  struct Failure {
    AWSErrorCode code;
    std::string message;
    int backendStatus = 0;
    /// The HTTP status is not compared, because it only explains the message.
    friend bool operator==(const Failure& a, const Failure& b) {
      return a.code == b.code && a.message == b.message;
    }
  };
  std::optional<Failure> failure_;
};

/// The domain of the error objects handed to the host.
inline constexpr std::string_view kUploaderErrorDomain = "AWSUploaderError";

/// The error object of a failure for the host: the domain "AWSUploaderError", the raw value of
/// `code`, and `message` as description.
QX_EXPORT Error uploaderError(AWSErrorCode code, std::string message);

/// The completion of an upload. It gets (URL, item id, no error) or (no URL, 0, error).
using UploadCompletion = std::function<void(
    const std::optional<std::string>& url, std::int64_t itemId, const std::optional<Error>& error)>;

}  // namespace qx
