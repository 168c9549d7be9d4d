#include "Classes/ItemUpdateItemOriginalImageUrl.h"

#include <string_view>

namespace qx {
namespace {

template <typename Request>
OrderedMembers encodeFields(const Request& request, std::string_view urlKey, const std::string& url,
                            const APIEncoder& encoder) {
  OrderedMembers fields = {{"item_id", request.itemId}, {std::string(urlKey), url}};
  const auto addIfPresent = [&fields](std::string_view key, const auto& field) {
    if (field) fields.emplace_back(key, *field);
  };
  addIfPresent("original_image_sha1", request.originalImageSha1);
  addIfPresent("original_image_height", request.originalImageHeight);
  addIfPresent("original_image_width", request.originalImageWidth);
  addIfPresent("original_image_file_size", request.originalImageFileSize);
  addIfPresent("original_image_file_format", request.originalImageFileFormat);
  return encoder.encode(fields);
}

}  // namespace

OrderedMembers ItemUpdateItemOriginalImageUrlRequest::parseParamater(
    const APIEncoder& encoder) const {
  return encodeFields(*this, "original_image_url", originalImageUrl, encoder);
}

Result<std::shared_ptr<const APIResponse>> ItemUpdateItemOriginalImageUrlRequest::decodeResponse(
    const Data& /*body*/, const APIDecoder& /*decoder*/) const {
  return std::shared_ptr<const APIResponse>(
      std::make_shared<const ItemUpdateItemOriginalImageUrlResponse>());
}

OrderedMembers ItemUpdateItemOriginalDetImageUrlRequest::parseParamater(
    const APIEncoder& encoder) const {
  return encodeFields(*this, "original_det_image_url", originalDetImageUrl, encoder);
}

Result<std::shared_ptr<const APIResponse>> ItemUpdateItemOriginalDetImageUrlRequest::decodeResponse(
    const Data& /*body*/, const APIDecoder& /*decoder*/) const {
  return std::shared_ptr<const APIResponse>(
      std::make_shared<const ItemUpdateItemOriginalDetImageUrlResponse>());
}

}  // namespace qx
