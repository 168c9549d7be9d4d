// GIF: the size stands in the first ten bytes. The rest is read as far as the first image's pixels,
// so that a file that ends before them is none.
#include <cstddef>
#include <cstdint>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

/// Blocks of up to 255 bytes that may stand before the first image (profiles, comments).
constexpr int kMostBlocks = 20'000;
constexpr std::uint8_t kExtension = 0x21;
constexpr std::uint8_t kImage = 0x2c;

std::uint32_t colourTableSize(std::uint8_t flags) {
  return (flags & 0x80) != 0 ? 3U << ((flags & 7) + 1) : 0;
}

}  // namespace

std::optional<ImageSize> gifSize(std::string_view bytes) {
  ByteReader reader(bytes, ByteReader::Order::littleEndian);
  reader.skip(6);
  const std::uint16_t width = reader.u16();
  const std::uint16_t height = reader.u16();
  const std::uint8_t flags = reader.u8();
  reader.skip(2);
  reader.skip(colourTableSize(flags));
  bool insideExtension = false;
  for (int blocks = 0; blocks < kMostBlocks && reader.complete(); ++blocks) {
    if (insideExtension) {
      const std::uint8_t length = reader.u8();
      reader.skip(length);
      insideExtension = length > 0;
      continue;
    }
    const std::uint8_t kind = reader.u8();
    if (kind == kExtension) {
      reader.skip(1);
      insideExtension = true;
    } else if (kind == kImage) {
      reader.skip(8);
      reader.skip(colourTableSize(reader.u8()));
      reader.skip(1);  // the bits of a pixel
      if (reader.u8() == 0 || reader.rest().empty() || width == 0 || height == 0) break;
      return ImageSize{.width = static_cast<double>(width), .height = static_cast<double>(height)};
    } else {
      break;
    }
  }
  return std::nullopt;
}

}  // namespace qx
