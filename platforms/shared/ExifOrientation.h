// How a viewer turns an image, as its EXIF block says.
//
// One entry of a fixed size is looked for where it lies; nothing else is read, and nothing is kept.
//
// Threads: pure functions.
#pragma once

#include <string_view>

#include "platform/Formats.h"

namespace qx {

/// The orientation, 1 to 8, of an EXIF block, with or without "Exif\0\0" in front; 1 when it says
/// none.
int exifOrientation(std::string_view block);

/// `size` as a viewer shows an image of that orientation: 5 to 8 lie on their side.
ImageSize turned(ImageSize size, int orientation);

}  // namespace qx
