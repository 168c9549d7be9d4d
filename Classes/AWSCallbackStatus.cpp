#include "Classes/AWSCallbackStatus.h"

#include <utility>

namespace qx {

std::optional<AWSErrorCode> errorCodeFromRawValue(std::int64_t rawValue) {
  const auto code = static_cast<AWSErrorCode>(rawValue);
  switch (code) {
    case AWSErrorCode::unknown:
    case AWSErrorCode::redirection:
    case AWSErrorCode::clientError:
    case AWSErrorCode::serverError:
    case AWSErrorCode::localFileNotFound:
    case AWSErrorCode::noConfigured:
    case AWSErrorCode::keyNotMatch:
    case AWSErrorCode::missParamters:
      return code;
  }
  return std::nullopt;
}

AWSCallbackStatus AWSCallbackStatus::failure(AWSErrorCode code, std::string message,
                                             int backendStatus) {
  AWSCallbackStatus status;
  status.failure_ = Failure{code, std::move(message), backendStatus};
  return status;
}

Error uploaderError(AWSErrorCode code, std::string message) {
  return {std::string(kUploaderErrorDomain), static_cast<std::int64_t>(code), std::move(message)};
}

}  // namespace qx
