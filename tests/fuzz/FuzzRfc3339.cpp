// Every date that can be read lies within the years of four digits, give or take a day for the
// zone.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "http/Rfc3339.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const auto seconds =
      qx::parseRfc3339(std::string_view(reinterpret_cast<const char*>(bytes), size));
  // The first instants of the years 0 and 10000.
  constexpr double kFirst = -62167219200.0;
  constexpr double kLast = 253402300800.0;
  if (seconds && !(*seconds >= kFirst - 86400 && *seconds <= kLast + 86400)) std::abort();
  return 0;
}
