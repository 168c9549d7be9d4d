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
  /// The credentials of each scope. The backend chooses the scopes; there may be none.
  std::map<std::string, UploadTokenModel> uploadTokenMap;

  /// Decodes a body whose "upload_token_map" has one credential record per scope. If a single
  /// record cannot be decoded, the whole response is an error.
  static Result<StorageGetUploadConfigResponse> decode(const Data& data, const APIDecoder& decoder);
};

/// The message GET "v3/storage/get_upload_config", which has no parameters.
struct StorageGetUploadConfigRequest : APIRequest {
  std::string api() const override { return "v3/storage/get_upload_config"; }
  std::vector<std::string> methods() const override { return {"GET"}; }
  OrderedMembers parseParamater(const APIEncoder& encoder) const override;
  Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const override;
};

}  // namespace qx
