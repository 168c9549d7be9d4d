// The reader returns for all bytes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platforms/shared/LibplistPropertyLists.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  qx::LibplistPropertyLists lists;
  const auto value =
      lists.decode(qx::Data(std::string(reinterpret_cast<const char*>(bytes), size)));
  if (value) (void)lists.element(*value);
  return 0;
}
