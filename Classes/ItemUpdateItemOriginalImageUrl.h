// The two backend messages that report the URL of an item's original image. They differ only in
// their path and in the name of the field with the URL.
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

/// The body of the response is not read, so every body can be decoded.
struct ItemUpdateItemOriginalImageUrlResponse : APIResponse {};
struct ItemUpdateItemOriginalDetImageUrlResponse : APIResponse {};

/// The message POST "v3/item/update_item_original_image_url". Absent fields are left out of its
/// body.
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

/// The message POST "v3/item/update_item_original_det_image_url". Absent fields are left out of its
/// body.
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
