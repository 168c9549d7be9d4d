// A text that can be decoded can be encoded again, and that decodes to the same value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platforms/shared/NlohmannJson.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  qx::NlohmannJson json;
  const auto value = json.decode(qx::Data(std::string(reinterpret_cast<const char*>(bytes), size)));
  if (!value) return 0;
  const auto text = json.encode(*value);
  if (!text) std::abort();
  const auto again = json.decode(qx::Data(*text));
  if (!again || !(*again == *value)) std::abort();
  return 0;
}
