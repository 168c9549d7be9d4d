// Whatever the bytes are, the reader answers.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platforms/shared/LinuxImageHeaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  qx::LinuxImageHeaders headers;
  (void)headers.size(qx::Data(std::string(reinterpret_cast<const char*>(bytes), size)));
  return 0;
}
