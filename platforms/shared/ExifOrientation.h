// The orientation in the EXIF block of an image, by which a viewer turns it.
//
// Only one entry of a fixed size is searched for. Nothing else is read, and nothing is kept.
//
// Threads: pure functions.
#pragma once

#include <string_view>

#include "platform/Formats.h"

namespace qx {

/// The orientation (1 to 8) in an EXIF block with or without "Exif\0\0" in front. 1 when the block
/// has none.
int exifOrientation(std::string_view block);

/// The size at which a viewer shows an image of this orientation. Orientations 5 to 8 exchange
/// width and height.
ImageSize turned(ImageSize size, int orientation);

}  // namespace qx
