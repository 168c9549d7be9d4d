// For every answer of a store, the error's text is one line of UTF-8.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Utf8.h"
#include "s3/StoreError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  qx::HttpAnswer answer;
  answer.status = 403;
  answer.body.assign(reinterpret_cast<const char*>(bytes), size);
  const std::string text = qx::storeError(answer, {"secret"}).description;
  if (!qx::isUtf8(text) || text.find('\n') != std::string::npos) std::abort();
  return 0;
}
