// Image sizes from the header alone: JPEG, PNG, GIF, WebP, TIFF, HEIC, AVIF, BMP and ICO.
//
// Whatever the bytes hold and however many there are, a call takes a few MiB of memory and a few
// milliseconds at most; nothing is kept between calls.
//
// Threads: may be called from any thread.
#pragma once

#include <optional>

#include "platform/Formats.h"

namespace qx {

class CodecImageHeaders : public ImageHeaders {
 public:
  /// Of an animation or a document of several pages: the size of one.
  std::optional<ImageSize> size(const Data& image) override;
};

}  // namespace qx
