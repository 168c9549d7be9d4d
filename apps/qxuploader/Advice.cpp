#include "Advice.h"

#include "Classes/AWSCallbackStatus.h"

namespace qx::app {

std::string adviceFor(const Error& error) {
  if (error.domain == kUploaderErrorDomain) {
    switch (errorCodeFromRawValue(error.code).value_or(AWSErrorCode::unknown)) {
      case AWSErrorCode::missParamters:
        return "check user id, token and backend; \"qxuploader config\" shows them";
      case AWSErrorCode::keyNotMatch:
        return "check --scope; the backend gave no credentials for it";
      case AWSErrorCode::serverError:
        return "check that backend and upload server can be reached and know the token; "
               "\"qxuploader config\" shows the addresses";
      case AWSErrorCode::localFileNotFound:
        return "the stored copy is gone; hand the file over again";
      case AWSErrorCode::noConfigured:
        return "the backend's credentials name a region that the store does not know; tell who "
               "runs the backend";
      case AWSErrorCode::clientError:
      case AWSErrorCode::redirection:
      case AWSErrorCode::unknown:
        break;
    }
  }
  return "check that the store's address is right (\"qxuploader config\" shows it) and that the "
         "scope permits this, then try again";
}

std::string withAdvice(const Error& error) {
  return error.description + "; " + adviceFor(error);
}

Event errorFields(const Error& error) {
  return {{"domain", error.domain}, {"code", error.code}, {"description", error.description}};
}

}  // namespace qx::app
