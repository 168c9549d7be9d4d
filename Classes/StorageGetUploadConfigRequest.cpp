#include "Classes/StorageGetUploadConfigRequest.h"

#include <utility>

namespace qx {

Result<StorageGetUploadConfigResponse> StorageGetUploadConfigResponse::decode(
    const Data& data, const APIDecoder& decoder) {
  const Result<Value> body = decoder.decode(data);
  if (!body) return body.error();
  const Dictionary* object = body->asDictionary();
  const auto member = object ? object->find("upload_token_map") : Dictionary::const_iterator();
  const Dictionary* records =
      object && member != object->end() ? member->second.asDictionary() : nullptr;
  if (records == nullptr) {
    return Error{"APIDecoder", 1, "the member \"upload_token_map\" is missing or mistyped"};
  }

  StorageGetUploadConfigResponse response;
  for (const auto& [scope, record] : *records) {
    Result<UploadTokenModel> model = UploadTokenModel::decode(record, decoder);
    if (!model) return model.error();
    response.uploadTokenMap.emplace(scope, *std::move(model));
  }
  return response;
}

OrderedMembers StorageGetUploadConfigRequest::parseParamater(const APIEncoder& encoder) const {
  return encoder.encode({});
}

Result<std::shared_ptr<const APIResponse>> StorageGetUploadConfigRequest::decodeResponse(
    const Data& body, const APIDecoder& decoder) const {
  Result<StorageGetUploadConfigResponse> response =
      StorageGetUploadConfigResponse::decode(body, decoder);
  if (!response) return response.error();
  return std::shared_ptr<const APIResponse>(
      std::make_shared<const StorageGetUploadConfigResponse>(*std::move(response)));
}

}  // namespace qx
