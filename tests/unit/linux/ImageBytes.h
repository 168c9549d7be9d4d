// Image files that are put together byte by byte, for the tests of the readers of image headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace qx {

/// A number of `width` bytes, the most significant one first.
inline std::string big(std::uint64_t value, int width) {
  std::string bytes;
  for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
  return bytes;
}

/// A number of `width` bytes, the least significant one first.
inline std::string little(std::uint64_t value, int width) {
  const std::string bytes = big(value, width);
  return {bytes.rbegin(), bytes.rend()};
}

inline std::string repeat(std::size_t count, const std::string& part) {
  std::string bytes;
  bytes.reserve(count * part.size());
  for (std::size_t i = 0; i < count; ++i) bytes += part;
  return bytes;
}

inline std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : bytes) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

inline std::string pngChunk(const std::string& name, const std::string& content) {
  return big(content.size(), 4) + name + content + big(crc32(name + content), 4);
}

/// A PNG with `chunks` between its header and the pixels.
inline std::string pngWith(const std::string& chunks, std::uint32_t width = 40,
                           std::uint32_t height = 30) {
  return "\x89PNG\r\n\x1A\n" +
         pngChunk("IHDR", big(width, 4) + big(height, 4) + std::string("\x08\x02\0\0\0", 5)) +
         chunks + pngChunk("IDAT", "pixels");
}

/// One entry of a TIFF directory in big-endian form.
inline std::string tiffEntry(int tag, int type, std::uint32_t count, const std::string& value) {
  return big(static_cast<std::uint64_t>(tag), 2) + big(static_cast<std::uint64_t>(type), 2) +
         big(count, 4) + value;
}
inline std::string tiffShort(int tag, int value) {
  return tiffEntry(tag, 3, 1, big(static_cast<std::uint64_t>(value), 2) + std::string(2, '\0'));
}
/// A TIFF structure with one directory after the header. `next` is the offset of another directory.
inline std::string tiffOf(const std::string& entries, std::uint32_t next = 0) {
  return "MM" + big(42, 2) + big(8, 4) + big(entries.size() / 12, 2) + entries + big(next, 4);
}

/// A box of an ISO media file.
inline std::string box(const std::string& type, std::initializer_list<std::string> parts) {
  std::string content;
  for (const std::string& part : parts) content += part;
  return big(content.size() + 8, 4) + type + content;
}
inline std::string fullBox(const std::string& type, int version,
                           std::initializer_list<std::string> parts) {
  std::string content = big(static_cast<std::uint64_t>(version), 1) + std::string(3, '\0');
  for (const std::string& part : parts) content += part;
  return box(type, {content});
}

struct Heic {
  /// Properties that the image has after its coded size.
  std::initializer_list<std::string> properties = {};
  /// The number of further items of the type Exif that all share the same data.
  int exifItems = 0;
  std::uint32_t dataSize = 100;
};

/// A HEIC whose image is coded as 40 x 30 pixels.
inline std::string heic(const Heic& heic) {
  const auto number = [](int value, int width) {
    return big(static_cast<std::uint64_t>(value), width);
  };
  const std::string file = box("ftyp", {"heic", big(0, 4), "mif1heic"});
  std::string infos = fullBox("infe", 2, {number(1, 2), number(0, 2), "hvc1", std::string(1, 0)});
  std::string references;
  for (int i = 2; i < heic.exifItems + 2; ++i) {
    infos += fullBox("infe", 2, {number(i, 2), number(0, 2), "Exif", std::string(1, 0)});
    references += box("cdsc", {number(i, 2), number(1, 2), number(1, 2)});
  }
  // The codec's settings only have to be well-formed here.
  const std::string settings("\1\1\x60\0\0\0\x90\0\0\0\0\0\x5D\xF0\0\xFC\xFD\xF8\xF8\0\0\x0F\0",
                             23);
  std::string properties = box("hvcC", {settings}) + fullBox("ispe", 0, {big(40, 4), big(30, 4)});
  std::string numbers = "\x81\x02";
  for (const std::string& property : heic.properties) {
    properties += property;
    numbers += static_cast<char>(numbers.size() + 1);
  }
  const auto meta = [&](std::uint64_t dataAt) {
    std::string places;
    for (int i = 1; i < heic.exifItems + 2; ++i) {
      places += number(i, 2) + big(0, 2) + big(1, 2) + big(dataAt, 4) + big(heic.dataSize, 4);
    }
    return fullBox(
        "meta", 0,
        {fullBox("hdlr", 0, {big(0, 4), "pict", std::string(13, 0)}),
         fullBox("pitm", 0, {big(1, 2)}),
         fullBox("iloc", 0, {"\x44", std::string(1, 0), number(heic.exifItems + 1, 2), places}),
         fullBox("iinf", 0, {number(heic.exifItems + 1, 2), infos}),
         box("iprp", {box("ipco", {properties}),
                      fullBox("ipma", 0, {big(1, 4), big(1, 2), big(numbers.size(), 1), numbers})}),
         fullBox("iref", 0, {references})});
  };
  return file + meta(file.size() + meta(0).size() + 8) +
         box("mdat", {std::string(heic.dataSize, 'x')});
}

}  // namespace qx
