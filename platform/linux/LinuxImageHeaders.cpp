#include "platform/linux/LinuxImageHeaders.h"

#include <vips/vips.h>

#include <array>
#include <string_view>
#include <utility>

namespace qx {
namespace {

bool setUp() {
  // What is wrong with an image is told by the result, not on the host's standard error.
  ::g_log_set_handler(
      "VIPS",
      static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_INFO |
                                  G_LOG_LEVEL_DEBUG),
      [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
  if (::vips_init("QXAwsUploader") != 0) return false;
  ::vips_concurrency_set(1);
  ::vips_cache_set_max(0);
  return true;
}

/// The loader for the bytes by their signature, or null. Chosen here, so that none of libvips' many
/// other loaders ever gets to see foreign bytes.
const char* loaderFor(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.starts_with("\xFF\xD8\xFF"sv)) return "jpegload_buffer";
  if (bytes.starts_with("\x89PNG\r\n\x1A\n"sv)) return "pngload_buffer";
  if (bytes.starts_with("GIF87a"sv) || bytes.starts_with("GIF89a"sv)) return "gifload_buffer";
  if (bytes.starts_with("RIFF"sv) && bytes.substr(0, 12).ends_with("WEBP"sv)) {
    return "webpload_buffer";
  }
  for (const auto signature : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv}) {
    if (bytes.starts_with(signature)) return "tiffload_buffer";
  }
  if (bytes.size() >= 12 && bytes.substr(4, 4) == "ftyp"sv) return "heifload_buffer";
  return nullptr;
}

}  // namespace

std::optional<ImageSize> LinuxImageHeaders::size(const Data& image) {
  static const bool ready = setUp();
  const char* const loader = loaderFor(image.text());
  if (!ready || loader == nullptr) return std::nullopt;

  // libvips only reads from the bytes; they stay valid for as long as `image` is held.
  VipsBlob* const blob = ::vips_blob_new(nullptr, image.bytes(), image.size());
  VipsImage* header = nullptr;
  std::optional<ImageSize> size;
  if (::vips_call(loader, blob, &header, "access", VIPS_ACCESS_SEQUENTIAL, nullptr) == 0) {
    size = ImageSize{.width = static_cast<double>(::vips_image_get_width(header)),
                     .height = static_cast<double>(::vips_image_get_page_height(header))};
    // Orientations 5 to 8 lie on their side.
    if (::vips_image_get_orientation(header) >= 5) std::swap(size->width, size->height);
    ::g_object_unref(header);
  }
  ::vips_area_unref(&blob->area);
  ::vips_error_clear();
  // The calling thread is not one of libvips' own; what it keeps for it goes now.
  ::vips_thread_shutdown();
  return size;
}

}  // namespace qx
