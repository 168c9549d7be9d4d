#include "platform/APIError.h"

#include <string_view>
#include <utility>

namespace qx {
namespace {

std::string_view localeKey(APIErrorCode code) {
  return code == APIErrorCode::success ? "SUCCESS" : "INTERNAL_ERROR";
}

Error memberError(std::string_view key) {
  return {"APIDecoder", 1,
          "the member \"" + std::string(key) + "\" of an error record is missing or mistyped"};
}

}  // namespace

std::optional<APIErrorCode> apiErrorCodeFromRawValue(std::int64_t rawValue) {
  const auto code = static_cast<APIErrorCode>(rawValue);
  switch (code) {
    case APIErrorCode::success:
    case APIErrorCode::internalError:
      return code;
  }
  return std::nullopt;
}

APIError::APIError(APIErrorCode errorCode, std::optional<std::string> errorMessage,
                   MessageClients& locale)
    : APIError(errorCode, errorMessage ? *std::move(errorMessage)
                                       : locale.localisedText(localeKey(errorCode))) {}

APIError::APIError(APIErrorCode errorCode, std::string errorMessage)
    : code(errorCode), message(std::move(errorMessage)) {}

Result<APIError> APIError::decode(const Value& value) {
  const Dictionary* object = value.asDictionary();
  if (object == nullptr) return Error{"APIDecoder", 1, "an error record is not an object"};
  const std::optional<std::int64_t> rawCode = readInt(*object, "code");
  const std::optional<APIErrorCode> code =
      rawCode ? apiErrorCodeFromRawValue(*rawCode) : std::nullopt;
  if (!code) return memberError("code");
  std::optional<std::string> message = readText(*object, "message");
  if (!message) return memberError("message");
  return APIError(*code, *std::move(message));
}

OrderedMembers APIError::encode() const {
  return {{"code", static_cast<std::int64_t>(code)}, {"message", message}};
}

Error APIError::asError() const {
  return {"APIError", static_cast<std::int64_t>(code), message};
}

}  // namespace qx
