// Every URL keeps its text, and all its parts can be read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/Url.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const auto file = qx::Url::file(text);
  if (file.decodedPath() != text && text.starts_with('/')) std::abort();
  const auto url = qx::Url::parse(text);
  if (!url) return 0;
  if (url->text() != text) std::abort();
  (void)url->decodedPath();
  (void)url->lastPathComponent();
  return 0;
}
