// Image sizes from the header alone: JPEG, PNG, GIF, WebP, TIFF, HEIC, AVIF, BMP and ICO.
//
// A call takes at most a few MiB of memory and a few milliseconds, whatever the bytes hold and
// however many there are. Nothing is kept between calls.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <optional>

#include "platform/Formats.h"

namespace qx {

class CodecImageHeaders : public ImageHeaders {
 public:
  /// For an animation or a document of several pages, the size is that of one image.
  std::optional<ImageSize> size(const Data& image) override;
};

}  // namespace qx
