// JPEG by libjpeg, up to the header of the first scan.
#include <csetjmp>
#include <cstddef>
#include <cstdio>  // jpeglib.h needs this header.
#include <string_view>

#include <jpeglib.h>

#include "platforms/shared/ExifOrientation.h"
#include "platforms/shared/ImageFormats.h"

namespace qx {
namespace {

using namespace std::string_view_literals;

/// libjpeg gets the bytes in windows of this size, up to this number of windows. Bytes that it
/// skips (profiles, previews) need no window, so that real headers end within a few windows.
constexpr std::size_t kWindow = 4096;
constexpr int kMostWindows = 256;

/// The error handler leaves libjpeg by longjmp, so no member here may have a destructor.
struct Reader {
  jpeg_decompress_struct jpeg;
  jpeg_error_mgr errors;
  jpeg_source_mgr source;
  std::jmp_buf failed;
  const char* bytes;
  std::size_t size;
  /// The number of bytes that libjpeg was given or has skipped.
  std::size_t given;
  int windowsLeft;
  int orientation;
};

Reader& readerOf(j_common_ptr jpeg) {
  return *static_cast<Reader*>(jpeg->client_data);
}
Reader& readerOf(j_decompress_ptr jpeg) {
  return *static_cast<Reader*>(jpeg->client_data);
}

[[noreturn]] void fail(j_common_ptr jpeg) {
  std::longjmp(readerOf(jpeg).failed, 1);
}
void saysNothing(j_common_ptr /*jpeg*/, int /*level*/) {}
void printsNothing(j_common_ptr /*jpeg*/) {}
void doesNothing(j_decompress_ptr /*jpeg*/) {}

boolean nextWindow(j_decompress_ptr jpeg) {
  Reader& reader = readerOf(jpeg);
  if (reader.windowsLeft-- == 0) fail(reinterpret_cast<j_common_ptr>(jpeg));
  if (reader.given == reader.size) {
    // Like the sources that libjpeg has itself: bytes that end early look like the end of an image.
    static constexpr JOCTET kEnd[] = {0xFF, JPEG_EOI};
    reader.source.next_input_byte = kEnd;
    reader.source.bytes_in_buffer = sizeof(kEnd);
    return TRUE;
  }
  const std::size_t left = reader.size - reader.given;
  const std::size_t window = left < kWindow ? left : kWindow;
  reader.source.next_input_byte = reinterpret_cast<const JOCTET*>(reader.bytes + reader.given);
  reader.source.bytes_in_buffer = window;
  reader.given += window;
  return TRUE;
}

void skip(j_decompress_ptr jpeg, long count) {
  Reader& reader = readerOf(jpeg);
  if (count <= 0) return;
  auto bytes = static_cast<std::size_t>(count);
  if (bytes <= reader.source.bytes_in_buffer) {
    reader.source.next_input_byte += bytes;
    reader.source.bytes_in_buffer -= bytes;
    return;
  }
  bytes -= reader.source.bytes_in_buffer;
  reader.source.bytes_in_buffer = 0;
  const std::size_t left = reader.size - reader.given;
  reader.given += bytes < left ? bytes : left;
}

/// Reads an APP1 segment in place and skips it. libjpeg itself would keep a copy of each segment.
boolean readApp1(j_decompress_ptr jpeg) {
  Reader& reader = readerOf(jpeg);
  const std::size_t at = reader.given - reader.source.bytes_in_buffer;
  if (reader.size - at < 2) fail(reinterpret_cast<j_common_ptr>(jpeg));
  const auto byte = [&](std::size_t i) {
    return static_cast<std::size_t>(static_cast<unsigned char>(reader.bytes[at + i]));
  };
  const std::size_t length = byte(0) << 8 | byte(1);
  if (length < 2 || length > reader.size - at) fail(reinterpret_cast<j_common_ptr>(jpeg));
  const std::string_view segment(reader.bytes + at + 2, length - 2);
  if (reader.orientation == 0 && segment.starts_with("Exif\0\0"sv)) {
    reader.orientation = exifOrientation(segment);
  }
  skip(jpeg, static_cast<long>(length));
  return TRUE;
}

/// Fills `reader.jpeg` from the header. False when the header is not whole.
bool readHeader(Reader& reader) {
  reader.jpeg.err = ::jpeg_std_error(&reader.errors);
  reader.jpeg.client_data = &reader;
  reader.errors.error_exit = fail;
  reader.errors.emit_message = saysNothing;
  reader.errors.output_message = printsNothing;
  // NOLINTNEXTLINE(cert-err52-cpp): there is no other way out of libjpeg.
  if (setjmp(reader.failed) != 0) return false;
  ::jpeg_CreateDecompress(&reader.jpeg, JPEG_LIB_VERSION, sizeof(reader.jpeg));
  reader.source.init_source = doesNothing;
  reader.source.fill_input_buffer = nextWindow;
  reader.source.skip_input_data = skip;
  reader.source.resync_to_restart = ::jpeg_resync_to_restart;
  reader.source.term_source = doesNothing;
  reader.jpeg.src = &reader.source;
  ::jpeg_set_marker_processor(&reader.jpeg, JPEG_APP0 + 1, readApp1);
  return ::jpeg_read_header(&reader.jpeg, TRUE) == JPEG_HEADER_OK;
}

}  // namespace

std::optional<ImageSize> jpegSize(std::string_view bytes) {
  Reader reader{};
  reader.bytes = bytes.data();
  reader.size = bytes.size();
  reader.windowsLeft = kMostWindows;
  const bool whole = readHeader(reader);
  const ImageSize size{.width = static_cast<double>(reader.jpeg.image_width),
                       .height = static_cast<double>(reader.jpeg.image_height)};
  ::jpeg_destroy_decompress(&reader.jpeg);
  if (!whole) return std::nullopt;
  return turned(size, reader.orientation);
}

}  // namespace qx
