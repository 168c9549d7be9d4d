// GIF: the first ten bytes hold the size. The file is read up to the pixels of the first image, so
// that a file that ends before them does not count as an image.
#include <cstddef>
#include <cstdint>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

/// The largest number of blocks of up to 255 bytes (profiles, comments) before the first image.
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
      reader.skip(1);  // The bits of a pixel.
      if (reader.u8() == 0 || reader.rest().empty() || width == 0 || height == 0) break;
      return ImageSize{.width = static_cast<double>(width), .height = static_cast<double>(height)};
    } else {
      break;
    }
  }
  return std::nullopt;
}

}  // namespace qx
