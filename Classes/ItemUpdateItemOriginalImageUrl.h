// The backend messages that tell where the original image of an item now lies. The two differ only
// in their path and in the name of the URL field.
//
// Threads: plain values.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Networking.h"

namespace qx {

/// Reads nothing from the body: any body decodes.
struct ItemUpdateItemOriginalImageUrlResponse : APIResponse {};
struct ItemUpdateItemOriginalDetImageUrlResponse : APIResponse {};

/// POST "v3/item/update_item_original_image_url". Absent fields are left out of the body.
struct ItemUpdateItemOriginalImageUrlRequest : APIRequest {
  std::int64_t itemId = 0;
  std::string originalImageUrl;
  std::optional<std::string> originalImageSha1;
  std::optional<std::int64_t> originalImageHeight;
  std::optional<std::int64_t> originalImageWidth;
  std::optional<std::int64_t> originalImageFileSize;
  std::optional<std::string> originalImageFileFormat;

  std::string api() const override { return "v3/item/update_item_original_image_url"; }
  std::vector<std::string> methods() const override { return {"POST"}; }
  OrderedMembers parseParamater(const APIEncoder& encoder) const override;
  Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const override;
};

/// POST "v3/item/update_item_original_det_image_url". Absent fields are left out of the body.
struct ItemUpdateItemOriginalDetImageUrlRequest : APIRequest {
  std::int64_t itemId = 0;
  std::string originalDetImageUrl;
  std::optional<std::string> originalImageSha1;
  std::optional<std::int64_t> originalImageHeight;
  std::optional<std::int64_t> originalImageWidth;
  std::optional<std::int64_t> originalImageFileSize;
  std::optional<std::string> originalImageFileFormat;

  std::string api() const override { return "v3/item/update_item_original_det_image_url"; }
  std::vector<std::string> methods() const override { return {"POST"}; }
  OrderedMembers parseParamater(const APIEncoder& encoder) const override;
  Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const override;
};

}  // namespace qx
