// WebP by libwebp, which reads the size from the first bytes. A chunk after the pixels holds the
// orientation. The lengths of the chunks lead to it.
#include <webp/decode.h>

#include <cstdint>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ExifOrientation.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

/// The largest number of chunks among which the orientation is searched for. An animation has a
/// chunk for each frame.
constexpr int kMostChunks = 10'000;
/// The bit of an extended header that announces an EXIF chunk.
constexpr std::uint8_t kHasExif = 0x08;

/// `chunks` are the bytes after "RIFF", the length and "WEBP".
int orientationIn(std::string_view chunks) {
  ByteReader reader(chunks, ByteReader::Order::littleEndian);
  for (int i = 0; i < kMostChunks && !reader.rest().empty(); ++i) {
    const std::string_view name = reader.take(4);
    const std::uint32_t length = reader.u32();
    const std::string_view content = reader.take(length);
    reader.skip(length % 2);
    if (name == "VP8X" && (content.empty() || !(content[0] & kHasExif))) return 1;
    if (i == 0 && name != "VP8X") return 1;
    if (name == "EXIF") return exifOrientation(content);
  }
  return 1;
}

}  // namespace

std::optional<ImageSize> webpSize(std::string_view bytes) {
  ByteReader header(bytes, ByteReader::Order::littleEndian);
  header.skip(4);
  const std::string_view file = header.take(header.u32());
  WebPBitstreamFeatures features{};
  if (!header.complete() || file.size() < 4 ||
      ::WebPGetFeatures(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(),
                        &features) != VP8_STATUS_OK) {
    return std::nullopt;
  }
  return turned({.width = static_cast<double>(features.width),
                 .height = static_cast<double>(features.height)},
                orientationIn(file.substr(4)));
}

}  // namespace qx
