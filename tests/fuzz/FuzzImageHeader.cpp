// The reader returns for all bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platforms/shared/CodecImageHeaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  qx::CodecImageHeaders headers;
  (void)headers.size(qx::Data(std::string(reinterpret_cast<const char*>(bytes), size)));
  return 0;
}
