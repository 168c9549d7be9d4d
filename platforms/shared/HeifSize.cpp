// HEIC and AVIF: the properties of the primary image in the file's boxes (ISO/IEC 14496-12 and
// 23008-12) hold the size.
//
// Our own code reads the boxes and copies nothing. libheif would copy the EXIF and other data of
// every item before it returns a size, and items may share their data.
#include <cstddef>
#include <cstdint>
#include <utility>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

constexpr int kMostTopBoxes = 1000;
/// The largest size of the boxes that describe all items. Those of a photo of a thousand tiles take
/// 60 KB.
constexpr std::size_t kLargestMeta = std::size_t{1} << 20;

struct Box {
  std::string_view type;
  std::string_view content;
};

ByteReader readerOf(std::string_view bytes) {
  return {bytes, ByteReader::Order::bigEndian};
}

/// Takes the next box. Nothing at the end of `bytes`, or when the box is not whole.
std::optional<Box> takeBox(std::string_view& bytes) {
  ByteReader reader = readerOf(bytes);
  std::uint64_t length = reader.u32();
  const std::string_view type = reader.take(4);
  std::uint64_t head = 8;
  if (length == 1) {
    length = reader.u64();
    head = 16;
  } else if (length == 0) {
    length = bytes.size();
  }
  if (!reader.complete() || length < head) return std::nullopt;
  const std::string_view content = reader.take(length - head);
  if (!reader.complete()) return std::nullopt;
  bytes = reader.rest();
  return Box{type, content};
}

/// The content of the first box of this type, or nothing.
std::optional<std::string_view> find(std::string_view boxes, std::string_view type) {
  while (const auto box = takeBox(boxes)) {
    if (box->type == type) return box->content;
  }
  return std::nullopt;
}

/// The content of a box after its version and flags.
struct Versioned {
  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  ByteReader reader;
};

Versioned versioned(std::string_view content) {
  ByteReader reader = readerOf(content);
  const std::uint32_t head = reader.u32();
  return {static_cast<std::uint8_t>(head >> 24), head & 0xffffff, reader};
}

/// The children of the "meta" box, which describe the items of the file, or nothing.
std::optional<std::string_view> itemBoxes(std::string_view file) {
  for (int i = 0; i < kMostTopBoxes; ++i) {
    const auto box = takeBox(file);
    if (!box) return std::nullopt;
    if (box->type != "meta") continue;
    if (box->content.size() > kLargestMeta) return std::nullopt;
    return versioned(box->content).reader.rest();
  }
  return std::nullopt;
}

std::optional<std::uint32_t> primaryItem(std::string_view boxes) {
  Versioned box = versioned(find(boxes, "pitm").value_or(std::string_view()));
  const std::uint32_t item = box.version == 0 ? box.reader.u16() : box.reader.u32();
  if (!box.reader.complete()) return std::nullopt;
  return item;
}

/// The type of an item, such as "hvc1", or nothing.
std::string_view itemType(std::string_view boxes, std::uint32_t wanted) {
  Versioned list = versioned(find(boxes, "iinf").value_or(std::string_view()));
  list.reader.skip(list.version == 0 ? 2 : 4);  // The number of entries.
  std::string_view entries = list.reader.rest();
  while (const auto box = takeBox(entries)) {
    Versioned entry = versioned(box->content);
    const std::uint32_t item = entry.version < 3 ? entry.reader.u16() : entry.reader.u32();
    entry.reader.skip(2);  // The protection index.
    if (box->type == "infe" && entry.version >= 2 && item == wanted) return entry.reader.take(4);
  }
  return {};
}

/// The property without which an item of this type cannot be decoded. Empty when the type needs
/// none; nothing when the type is no image.
std::optional<std::string_view> neededProperty(std::string_view type) {
  if (type == "hvc1") return "hvcC";
  if (type == "av01") return "av1C";
  // Such an item is put together from other items.
  if (type == "grid" || type == "iovl" || type == "iden") return "";
  return std::nullopt;
}

/// True when the data of every item that lies in the file lies within the `size` bytes of the file.
bool isWhole(std::string_view boxes, std::uint64_t size) {
  Versioned box = versioned(find(boxes, "iloc").value_or(std::string_view()));
  ByteReader& reader = box.reader;
  const std::uint16_t widths = reader.u16();
  const std::size_t offsetWidth = widths >> 12;
  const std::size_t lengthWidth = widths >> 8 & 0xf;
  const std::size_t baseWidth = widths >> 4 & 0xf;
  const std::size_t indexWidth = box.version > 0 ? widths & 0xf : 0;
  if (offsetWidth > 8 || lengthWidth > 8 || baseWidth > 8 || indexWidth > 8) return false;
  const std::uint32_t items = box.version < 2 ? reader.u16() : reader.u32();
  for (std::uint32_t i = 0; i < items && reader.complete(); ++i) {
    reader.skip(box.version < 2 ? 2 : 4);
    const bool isInFile = box.version == 0 || (reader.u16() & 0xf) == 0;
    const bool isInThisFile = reader.u16() == 0 && isInFile;
    const std::uint64_t base = reader.number(baseWidth);
    const std::uint16_t extents = reader.u16();
    // An item may have 65,535 extents that take no byte each.
    if (offsetWidth + lengthWidth + indexWidth == 0) continue;
    for (int extent = 0; extent < extents && reader.complete(); ++extent) {
      reader.skip(indexWidth);
      const std::uint64_t offset = reader.number(offsetWidth);
      const std::uint64_t length = reader.number(lengthWidth);
      const bool isWithin = base <= size && offset <= size - base && length <= size - base - offset;
      if (isInThisFile && !isWithin) return false;
    }
  }
  return reader.complete();
}

/// Applies the clean aperture: two fractions, width and height, outside of which the image is cut
/// away.
std::optional<ImageSize> clipped(std::string_view property) {
  ByteReader reader = readerOf(property);
  const auto side = [&reader] {
    const std::uint64_t above = reader.u32();
    const std::uint64_t below = reader.u32();
    return below == 0 ? 0 : (2 * above + below) / (2 * below);
  };
  const std::uint64_t width = side();
  const std::uint64_t height = side();
  if (!reader.complete()) return std::nullopt;
  return ImageSize{.width = static_cast<double>(width), .height = static_cast<double>(height)};
}

/// The content and the type of the property with this number. Numbers begin at 1.
std::optional<Box> propertyAt(std::string_view properties, std::uint32_t number) {
  std::optional<Box> box;
  for (std::uint32_t i = 0; i < number; ++i) {
    box = takeBox(properties);
    if (!box) return std::nullopt;
  }
  return box;
}

/// The size after all properties of an item, in their order. `reader` is at the numbers of the
/// properties.
std::optional<ImageSize> sizeAfter(ByteReader reader, int count, std::size_t width,
                                   std::string_view properties, std::string_view needed) {
  std::optional<ImageSize> size;
  bool isDecodable = needed.empty();
  for (int i = 0; i < count; ++i) {
    // The highest bit says whether a reader must understand the property.
    const auto number =
        static_cast<std::uint32_t>(reader.number(width) & (width == 2 ? 0x7fff : 0x7f));
    const auto property = propertyAt(properties, number);
    if (!property) continue;
    isDecodable = isDecodable || property->type == needed;
    if (property->type == "ispe") {
      ByteReader extents = versioned(property->content).reader;
      size = ImageSize{.width = static_cast<double>(extents.u32()),
                       .height = static_cast<double>(extents.u32())};
      if (!extents.complete()) return std::nullopt;
    } else if (property->type == "clap" && size) {
      size = clipped(property->content);
    } else if (property->type == "irot" && size && !property->content.empty()) {
      // The rotation in quarter turns.
      if ((property->content[0] & 1) != 0) std::swap(size->width, size->height);
    }
  }
  return reader.complete() && isDecodable ? size : std::nullopt;
}

std::optional<ImageSize> itemSize(std::string_view boxes, std::uint32_t wanted) {
  const auto needed = neededProperty(itemType(boxes, wanted));
  if (!needed) return std::nullopt;
  std::string_view associations = find(boxes, "iprp").value_or(std::string_view());
  const std::string_view properties = find(associations, "ipco").value_or(std::string_view());
  while (const auto box = takeBox(associations)) {
    if (box->type != "ipma") continue;
    Versioned list = versioned(box->content);
    const std::size_t width = (list.flags & 1) != 0 ? 2 : 1;
    const std::uint32_t entries = list.reader.u32();
    for (std::uint32_t i = 0; i < entries && list.reader.complete(); ++i) {
      const std::uint32_t item = list.version == 0 ? list.reader.u16() : list.reader.u32();
      const int count = list.reader.u8();
      if (item == wanted) return sizeAfter(list.reader, count, width, properties, *needed);
      list.reader.skip(static_cast<std::uint64_t>(count) * width);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<ImageSize> heifSize(std::string_view bytes) {
  const auto boxes = itemBoxes(bytes);
  const auto primary = boxes ? primaryItem(*boxes) : std::nullopt;
  if (!primary || !isWhole(*boxes, bytes.size())) return std::nullopt;
  const auto size = itemSize(*boxes, *primary);
  if (!size || size->width == 0 || size->height == 0) return std::nullopt;
  return size;
}

}  // namespace qx
