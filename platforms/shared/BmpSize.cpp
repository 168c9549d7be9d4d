// BMP: the second header, which has an old and a new form, holds the size.
#include <cstdint>
#include <cstdlib>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {

std::optional<ImageSize> bmpSize(std::string_view bytes) {
  constexpr std::uint32_t kOldHeader = 12;
  constexpr std::uint32_t kNewHeader = 40;
  ByteReader reader(bytes, ByteReader::Order::littleEndian);
  reader.skip(10);
  const std::uint32_t pixels = reader.u32();
  const std::uint32_t header = reader.u32();
  std::int64_t width = 0;
  std::int64_t height = 0;
  if (header == kOldHeader) {
    width = reader.u16();
    height = reader.u16();
  } else if (header >= kNewHeader) {
    width = static_cast<std::int32_t>(reader.u32());
    // A negative height means that the first row is the topmost one.
    height = std::abs(std::int64_t{static_cast<std::int32_t>(reader.u32())});
  }
  const std::uint16_t planes = reader.u16();
  reader.skip(2);
  if (!reader.complete() || width <= 0 || height == 0 || planes != 1 || pixels >= bytes.size()) {
    return std::nullopt;
  }
  return ImageSize{.width = static_cast<double>(width), .height = static_cast<double>(height)};
}

}  // namespace qx
