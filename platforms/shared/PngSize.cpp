// PNG by libpng. libpng gets only what the size depends on: the header, the palette, and the fact
// that pixels follow. Texts, profiles and all other chunks are skipped.
#include <png.h>

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platforms/shared/ByteReader.h"
#include "platforms/shared/ExifOrientation.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

constexpr std::size_t kSignature = 8;
/// The size of a chunk without its content: length and name before it, a check sum after it.
constexpr std::size_t kAroundChunk = 12;
/// The largest number of chunks before the pixels. No encoder writes nearly as many.
constexpr int kMostChunks = 10'000;
constexpr std::size_t kLongestPalette = 768;

/// The bytes that libpng shall read, piece by piece. No member here may have a destructor, because
/// libpng is left by longjmp.
struct Pieces {
  std::array<std::string_view, 4> pieces;
  std::size_t count;
};

void read(png_structp png, png_bytep out, std::size_t size) {
  auto& pieces = *static_cast<Pieces*>(::png_get_io_ptr(png));
  for (std::string_view& piece : pieces.pieces) {
    const std::size_t part = piece.size() < size ? piece.size() : size;
    std::memcpy(out, piece.data(), part);
    piece.remove_prefix(part);
    out += part;
    size -= part;
    if (size == 0) return;
  }
  ::png_error(png, "end of the bytes");
}

[[noreturn]] void fail(png_structp png, png_const_charp /*message*/) {
  ::png_longjmp(png, 1);
}
void saysNothing(png_structp /*png*/, png_const_charp /*message*/) {}

bool readInfo(png_structp png, png_infop info, Pieces& pieces) {
  // NOLINTNEXTLINE(cert-err52-cpp): there is no other way out of libpng.
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  ::png_set_read_fn(png, &pieces, read);
  // A large image is not refused, because no memory is taken for its pixels.
  ::png_set_user_limits(png, 0x7fffffff, 0x7fffffff);
  ::png_read_info(png, info);
  return true;
}

std::optional<ImageSize> sizeOf(Pieces pieces) {
  png_structp png = ::png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, fail, saysNothing);
  if (png == nullptr) return std::nullopt;
  png_infop info = ::png_create_info_struct(png);
  std::optional<ImageSize> size;
  if (info != nullptr && readInfo(png, info, pieces)) {
    size = ImageSize{.width = static_cast<double>(::png_get_image_width(png, info)),
                     .height = static_cast<double>(::png_get_image_height(png, info))};
  }
  ::png_destroy_read_struct(&png, &info, nullptr);
  return size;
}

}  // namespace

std::optional<ImageSize> pngSize(std::string_view bytes) {
  Pieces pieces{};
  const auto show = [&](std::string_view piece) { pieces.pieces[pieces.count++] = piece; };
  show(bytes.substr(0, kSignature));
  std::string_view rest = bytes.substr(pieces.pieces[0].size());
  int orientation = 1;
  for (int chunks = 0; chunks < kMostChunks; ++chunks) {
    ByteReader chunk(rest, ByteReader::Order::bigEndian);
    const std::size_t length = chunk.u32();
    const std::string_view name = chunk.take(4);
    const bool isCritical = !name.empty() && name.front() >= 'A' && name.front() <= 'Z';
    if (name == "IDAT") {
      show(rest.substr(0, 8));
      const auto size = sizeOf(pieces);
      if (!size) return std::nullopt;
      return turned(*size, orientation);
    }
    const std::string_view content = chunk.take(length);
    chunk.skip(4);
    if (!chunk.complete()) return std::nullopt;
    if (name == "eXIf") {
      orientation = exifOrientation(content);
    } else if (isCritical) {
      // Each of these two chunks occurs once. Any other critical chunk would have to be understood.
      const bool isHeader = name == "IHDR" && pieces.count == 1;
      const bool isPalette = name == "PLTE" && pieces.count == 2 && length <= kLongestPalette;
      if (!isHeader && !isPalette) return std::nullopt;
      show(rest.substr(0, kAroundChunk + length));
    }
    rest = chunk.rest();
  }
  return std::nullopt;
}

}  // namespace qx
