// The error record of the backend.
//
//     const Result<APIError> record = APIError::decode(value);  // {"code": 1000, "message": "no"}
//     if (record) return record->asError();  // Domain "APIError", code 1000, description "no".
//
// Threads: a plain value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/Export.h"
#include "platform/Formats.h"
#include "platform/Networking.h"
#include "platform/Value.h"

namespace qx {

enum class APIErrorCode : std::int64_t { success = 1, internalError = 1000 };

/// The case with this raw value, or nothing for any other number.
QX_EXPORT std::optional<APIErrorCode> apiErrorCodeFromRawValue(std::int64_t rawValue);

struct QX_EXPORT APIError {
  /// A missing message becomes the locale's text for "SUCCESS" or "INTERNAL_ERROR".
  APIError(APIErrorCode errorCode, std::optional<std::string> errorMessage, MessageClients& locale);

  /// Reads a JSON object with both members. A member that is missing, has another type or is an
  /// unknown code is an error of the domain "APIDecoder" that names the member.
  static Result<APIError> decode(const Value& value);
  /// The members "code", an integer, and "message", in this order.
  OrderedMembers encode() const;
  /// The record as an error value: domain "APIError", the raw code, the message.
  Error asError() const;

  APIErrorCode code;
  std::string message;

  friend bool operator==(const APIError&, const APIError&) = default;

 private:
  APIError(APIErrorCode errorCode, std::string errorMessage);
};

}  // namespace qx
