// The temporary credentials of one upload scope.
//
// Threads: a plain value.
#pragma once

#include <string>

#include "platform/Error.h"
#include "platform/Formats.h"
#include "platform/Networking.h"
#include "platform/Value.h"

namespace qx {

struct UploadTokenModel {
  std::string accessKeyId;
  std::string accessKeySecret;
  /// The session token that goes with the key.
  std::string securityToken;
  /// The instant from which the credentials are no longer valid.
  Date expiration;
  std::string bucket;
  std::string region;
  /// The key prefix under which the scope may write.
  std::string authorizedPath;
  /// The prefix of the public URL of an uploaded object.
  std::string downloadUrlPrefix;

  /// Decodes a JSON object with all eight members. A member that is missing or has another type is
  /// an error that names it.
  static Result<UploadTokenModel> decode(const Value& value, const APIDecoder& decoder);
  /// Encodes all eight members, in the order above.
  OrderedMembers encode() const;

  friend bool operator==(const UploadTokenModel&, const UploadTokenModel&) = default;
};

}  // namespace qx
