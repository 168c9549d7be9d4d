#include "platforms/shared/CodecImageHeaders.h"

#include <string_view>

#include "platforms/shared/ImageFormats.h"

namespace qx {

std::optional<ImageSize> CodecImageHeaders::size(const Data& image) {
  using namespace std::string_view_literals;
  const std::string_view bytes = image.text();
  if (bytes.starts_with("\xFF\xD8\xFF"sv)) return jpegSize(bytes);
  if (bytes.starts_with("\x89PNG\r\n\x1A\n"sv)) return pngSize(bytes);
  if (bytes.starts_with("GIF87a"sv) || bytes.starts_with("GIF89a"sv)) return gifSize(bytes);
  if (bytes.starts_with("RIFF"sv) && bytes.substr(0, 12).ends_with("WEBP"sv)) {
    return webpSize(bytes);
  }
  for (const auto signature : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
    if (bytes.starts_with(signature)) return tiffSize(bytes);
  }
  if (bytes.size() >= 12 && bytes.substr(4, 4) == "ftyp"sv) return heifSize(bytes);
  if (bytes.starts_with("BM"sv)) return bmpSize(bytes);
  if (bytes.starts_with("\0\0\1\0"sv)) return icoSize(bytes);
  return std::nullopt;
}

}  // namespace qx
