#include "platforms/shared/ExifOrientation.h"

#include <cstdint>
#include <utility>

#include "platforms/shared/ByteReader.h"

namespace qx {
namespace {

using namespace std::string_view_literals;

}  // namespace

int exifOrientation(std::string_view block) {
  constexpr std::uint16_t kOrientation = 0x0112;
  constexpr std::uint16_t kShort = 3;
  if (block.starts_with("Exif\0\0"sv)) block.remove_prefix(6);
  if (!block.starts_with("II*\0"sv) && !block.starts_with("MM\0*"sv)) return 1;
  const auto order =
      block.front() == 'I' ? ByteReader::Order::littleEndian : ByteReader::Order::bigEndian;
  ByteReader header(block.substr(4), order);
  ByteReader directory(block, order);
  directory.skip(header.u32());
  const int entries = directory.u16();
  for (int i = 0; i < entries && directory.complete(); ++i) {
    const std::uint16_t tag = directory.u16();
    const std::uint16_t type = directory.u16();
    const std::uint32_t count = directory.u32();
    const int value = directory.u16();
    directory.skip(2);
    if (tag != kOrientation) continue;
    return type == kShort && count == 1 && value >= 1 && value <= 8 ? value : 1;
  }
  return 1;
}

ImageSize turned(ImageSize size, int orientation) {
  if (orientation >= 5) std::swap(size.width, size.height);
  return size;
}

}  // namespace qx
