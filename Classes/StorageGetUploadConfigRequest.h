// The backend message that fetches the credentials of all scopes, and its answer.
//
// Threads: plain values.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Classes/UploadTokenModel.h"
#include "platform/Networking.h"

namespace qx {

struct StorageGetUploadConfigResponse : APIResponse {
  /// Credentials per scope; the scopes are the backend's. May be empty.
  std::map<std::string, UploadTokenModel> uploadTokenMap;

  /// From a body whose "upload_token_map" holds one credential record per scope; a single record
  /// that does not decode fails the whole response.
  static Result<StorageGetUploadConfigResponse> decode(const Data& data, const APIDecoder& decoder);
};

/// GET "v3/storage/get_upload_config", without parameters.
struct StorageGetUploadConfigRequest : APIRequest {
  std::string api() const override { return "v3/storage/get_upload_config"; }
  std::vector<std::string> methods() const override { return {"GET"}; }
  OrderedMembers parseParamater(const APIEncoder& encoder) const override;
  Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const override;
};

}  // namespace qx
