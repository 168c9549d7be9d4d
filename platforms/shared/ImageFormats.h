// One function for each image format. It yields the size at which a viewer shows the image in
// `bytes` (orientation applied), from the header alone. Nothing when the bytes are no image of this
// format or end before its pixels begin. For an animation or a document of several pages, the size
// is that of one image.
//
// The bytes may come from anybody. No function decodes pixels or unpacks texts and profiles. Memory
// and time are bounded whatever the bytes hold, and do not grow with their number.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string_view>

#include "platform/Formats.h"

namespace qx {

std::optional<ImageSize> jpegSize(std::string_view bytes);
std::optional<ImageSize> pngSize(std::string_view bytes);
std::optional<ImageSize> gifSize(std::string_view bytes);
std::optional<ImageSize> webpSize(std::string_view bytes);
std::optional<ImageSize> tiffSize(std::string_view bytes);
std::optional<ImageSize> heifSize(std::string_view bytes);
std::optional<ImageSize> bmpSize(std::string_view bytes);
std::optional<ImageSize> icoSize(std::string_view bytes);

}  // namespace qx
