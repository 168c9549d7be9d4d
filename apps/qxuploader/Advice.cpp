#include "Advice.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

#include "Classes/AWSCallbackStatus.h"

namespace qx::app {
namespace {

bool mentions(const Error& error, std::string_view text) {
  return error.description.find(text) != std::string::npos;
}

/// The HTTP status in the text of an error: "... (HTTP 404)" of the store, or just "413" of the
/// upload server. 0 when there is none.
int statusIn(std::string_view text) {
  constexpr std::string_view kMark = "HTTP ";
  const bool bare = text.size() == 3 && std::all_of(text.begin(), text.end(), [](unsigned char c) {
                      return std::isdigit(c) != 0;
                    });
  const std::size_t mark = text.rfind(kMark);
  if (!bare && mark == std::string_view::npos) return 0;
  const std::string_view number = bare ? text : text.substr(mark + kMark.size());
  int status = 0;
  std::from_chars(number.data(), number.data() + number.size(), status);
  return status;
}

/// The advice for an HTTP status. Empty when the status says no more than the code of the error.
std::string adviceForStatus(const Error& error, AWSErrorCode code, int backendStatus) {
  const int status = backendStatus != 0 ? backendStatus : statusIn(error.description);
  if (status == 413 || mentions(error, "EntityTooLarge")) {
    return "the file is larger than the server takes; make it smaller";
  }
  if (status == 415) {
    return "the upload server does not take this kind of file; leave --server-resize out for what "
           "is no image";
  }
  if (backendStatus == 401 || backendStatus == 403) {
    return "the access token is not accepted for this user id; renew it, \"qxuploader config\" "
           "shows "
           "where it comes from";
  }
  // The backend and the upload server share a code. An error with any other code comes from the
  // store.
  if (status == 404 && code != AWSErrorCode::serverError) {
    if (mentions(error, "NoSuchBucket")) {
      return "the backend names a bucket that the store does not have; tell who runs the backend";
    }
    return "the store has no such object; it may have been deleted or belong to another --scope";
  }
  // A store does not tell a client that may not list the bucket whether an object exists.
  if (status == 403 && mentions(error, "AccessDenied")) {
    return "the scope does not permit this, or there is no such object to download; check --scope";
  }
  if (status == 429 || status >= 500) {
    return "the server is busy or out of order; try again later";
  }
  return {};
}

}  // namespace

std::string adviceFor(const Error& error, int backendStatus) {
  if (mentions(error, "No space left on device") || mentions(error, "Disk quota exceeded")) {
    return "make room on that disk or name a directory on another one";
  }
  if (error.domain == "Files" || mentions(error, "cannot write ")) {
    return "check that the directory is there and can be written";
  }
  if (mentions(error, "timed out") || mentions(error, "took too long")) {
    return "the connection is too slow or stands still; try again when it is better";
  }
  const bool own = error.domain == kUploaderErrorDomain;
  const AWSErrorCode code = errorCodeFromRawValue(error.code).value_or(AWSErrorCode::unknown);
  if (std::string advice = adviceForStatus(error, code, backendStatus); !advice.empty()) {
    return advice;
  }
  switch (own ? code : AWSErrorCode::unknown) {
    case AWSErrorCode::missParamters:
      if (mentions(error, "not found file or data")) break;
      return "check user id, token and backend; \"qxuploader config\" shows them";
    case AWSErrorCode::keyNotMatch:
      return "check --scope; the backend gave no credentials for it";
    case AWSErrorCode::serverError:
      return "check that backend and upload server can be reached and know the token; "
             "\"qxuploader config\" shows the addresses";
    case AWSErrorCode::noConfigured:
      return "the backend's credentials name a region that the store does not know; tell who "
             "runs the backend";
    case AWSErrorCode::localFileNotFound:
      break;
    case AWSErrorCode::clientError:
    case AWSErrorCode::redirection:
    case AWSErrorCode::unknown:
      return "check that the store's address is right (\"qxuploader config\" shows it) and that "
             "the "
             "scope permits this, then try again";
  }
  return "the stored copy is gone; hand the file over again";
}

std::string withAdvice(const Error& error, int backendStatus) {
  return error.description + "; " + adviceFor(error, backendStatus);
}

Event errorFields(const Error& error) {
  return {{"domain", error.domain}, {"code", error.code}, {"description", error.description}};
}

}  // namespace qx::app
