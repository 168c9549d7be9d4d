// TIFF by libtiff, for the first directory alone. libtiff reads the bytes through callbacks that
// stop it when it has read too much, and its allocations are limited.
#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ExifOrientation.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

/// The largest number of entries in a directory. The directory of a camera's raw file has about
/// 150. libtiff sorts all known entries again for each entry that it does not know, so that
/// thousands of entries would take it seconds.
/// 150. libtiff sorts all known entries again for each entry that it does not know, so that
/// thousands of entries would take it seconds.
constexpr std::uint64_t kMostEntries = 512;
constexpr std::size_t kMostRead = std::size_t{1} << 20;
constexpr tmsize_t kLargestMemory = tmsize_t{1} << 20;

struct Source {
  std::string_view bytes;
  std::uint64_t position = 0;
  std::size_t mayRead = kMostRead;
};

Source& sourceOf(thandle_t handle) {
  return *static_cast<Source*>(handle);
}

tmsize_t read(thandle_t handle, void* out, tmsize_t size) {
  Source& source = sourceOf(handle);
  const auto wanted = static_cast<std::size_t>(size);
  if (size < 0 || source.position > source.bytes.size() || wanted > source.mayRead) return 0;
  const std::string_view part =
      source.bytes.substr(static_cast<std::size_t>(source.position), wanted);
  std::memcpy(out, part.data(), part.size());
  source.position += part.size();
  source.mayRead -= part.size();
  return static_cast<tmsize_t>(part.size());
}
tmsize_t write(thandle_t /*handle*/, void* /*bytes*/, tmsize_t /*size*/) {
  return 0;
}
toff_t seek(thandle_t handle, toff_t offset, int origin) {
  Source& source = sourceOf(handle);
  const std::uint64_t base = origin == SEEK_CUR   ? source.position
                             : origin == SEEK_END ? source.bytes.size()
                                                  : 0;
  source.position = base + offset;
  return source.position;
}
int close(thandle_t /*handle*/) {
  return 0;
}
toff_t size(thandle_t handle) {
  return sourceOf(handle).bytes.size();
}
int saysNothing(TIFF* /*tiff*/, void* /*data*/, const char* /*module*/, const char* /*format*/,
                va_list /*arguments*/) {
  return 1;
}

/// The number of entries in the first directory.
std::uint64_t entryCount(std::string_view bytes) {
  const auto order =
      bytes.front() == 'I' ? ByteReader::Order::littleEndian : ByteReader::Order::bigEndian;
  ByteReader header(bytes.substr(2), order);
  const bool isBig = header.u16() == 43;
  if (isBig) header.skip(4);
  ByteReader directory(bytes, order);
  directory.skip(isBig ? header.u64() : header.u32());
  return isBig ? directory.u64() : directory.u16();
}

TIFF* open(Source& source) {
  TIFFOpenOptions* const options = ::TIFFOpenOptionsAlloc();
  if (options == nullptr) return nullptr;
  ::TIFFOpenOptionsSetMaxSingleMemAlloc(options, kLargestMemory);
  ::TIFFOpenOptionsSetErrorHandlerExtR(options, saysNothing, nullptr);
  ::TIFFOpenOptionsSetWarningHandlerExtR(options, saysNothing, nullptr);
  // "m": libtiff reads through the callbacks, not from a mapping. "O": it does not read the
  // positions of the strips.
  TIFF* const tiff = ::TIFFClientOpenExt("image", "rmO", &source, read, write, seek, close, size,
                                         nullptr, nullptr, options);
  ::TIFFOpenOptionsFree(options);
  return tiff;
}

}  // namespace

std::optional<ImageSize> tiffSize(std::string_view bytes) {
  if (entryCount(bytes) > kMostEntries) return std::nullopt;
  Source source{.bytes = bytes};
  TIFF* const tiff = open(source);
  if (tiff == nullptr) return std::nullopt;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint16_t orientation = 1;
  std::uint16_t compression = 0;
  const bool whole = ::TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) == 1 &&
                     ::TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) == 1 &&
                     ::TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression) == 1 &&
                     ::TIFFIsCODECConfigured(compression) != 0;
  ::TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
  ::TIFFClose(tiff);
  if (!whole || width == 0 || height == 0) return std::nullopt;
  return turned({.width = static_cast<double>(width), .height = static_cast<double>(height)},
                orientation);
}

}  // namespace qx
