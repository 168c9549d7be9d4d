// ICO: a list of images of one subject in several sizes. The size is that of the largest image.
#include <cstdint>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {

std::optional<ImageSize> icoSize(std::string_view bytes) {
  ByteReader reader(bytes, ByteReader::Order::littleEndian);
  reader.skip(4);
  const std::uint16_t count = reader.u16();
  const auto side = [&reader] {
    const std::uint8_t written = reader.u8();
    return written == 0 ? 256.0 : written;
  };
  ImageSize largest;
  for (int i = 0; i < count; ++i) {
    const double width = side();
    const double height = side();
    reader.skip(6);
    const std::uint64_t length = reader.u32();
    const std::uint64_t offset = reader.u32();
    if (!reader.complete() || length == 0 || offset + length > bytes.size()) return std::nullopt;
    if (width * height > largest.width * largest.height) largest = {width, height};
  }
  if (count == 0) return std::nullopt;
  return largest;
}

}  // namespace qx
