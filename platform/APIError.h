// The backend's error record.
//
// Threads: plain value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Error.h"
#include "platform/Formats.h"
#include "platform/Networking.h"
#include "platform/Value.h"

namespace qx {

enum class APIErrorCode : std::int64_t { success = 1, internalError = 1000 };

/// The case of a raw value; nothing for any number but the two.
std::optional<APIErrorCode> apiErrorCodeFromRawValue(std::int64_t rawValue);

struct APIError {
  /// A missing message becomes the locale's text for "SUCCESS" or "INTERNAL_ERROR".
  APIError(APIErrorCode errorCode, std::optional<std::string> errorMessage, MessageClients& locale);

  /// From a JSON object with both members; a missing, mistyped or unknown one is an error of the
  /// domain "APIDecoder" that names it.
  static Result<APIError> decode(const Value& value);
  /// "code" as the bare integer, then "message".
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
