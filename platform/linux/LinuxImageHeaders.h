// Image sizes by libvips, from the header alone: JPEG, PNG, GIF, WebP, TIFF, HEIC and AVIF.
//
// libvips is set up at the first call: one thread, no cache, warnings silenced. A host that uses
// libvips itself sets these to its own liking afterwards.
//
// Threads: may be called from any thread.
#pragma once

#include <optional>

#include "platform/Formats.h"

namespace qx {

class LinuxImageHeaders : public ImageHeaders {
 public:
  /// Of an animation or a document of several pages: the size of one.
  std::optional<ImageSize> size(const Data& image) override;
};

}  // namespace qx
