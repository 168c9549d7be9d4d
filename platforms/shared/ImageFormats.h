// One function for each image format: the size of the image that `bytes` hold as a viewer shows it
// (orientation applied), from its header alone, or nothing when the bytes are no such image or end
// before its pixels begin. Of an animation or a document of several pages: the size of one.
//
// The bytes are anybody's. Pixels are never decoded, texts and profiles never unpacked; memory and
// time are bounded whatever the bytes hold, and do not grow with their number.
//
// Threads: pure functions, callable from any thread.
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
