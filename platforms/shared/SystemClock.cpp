#include "platforms/shared/SystemClock.h"

#include <sys/random.h>
#include <time.h>

#include <array>
#include <cstddef>

#include "platform/Error.h"
#include "platform/Hex.h"

namespace qx {
namespace {

void fillRandomly(void* bytes, std::size_t size) {
  if (::getentropy(bytes, size) != 0) fatal("the system gives no random bytes");
}

}  // namespace

double SystemClock::now() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::uint32_t SystemRandom::next() {
  std::uint32_t value = 0;
  fillRandomly(&value, sizeof value);
  return value;
}

std::string SystemUuid::random() {
  std::array<std::byte, 16> bytes{};
  fillRandomly(bytes.data(), bytes.size());
  bytes[6] = (bytes[6] & std::byte{0x0F}) | std::byte{0x40};  // Version 4: random.
  bytes[8] = (bytes[8] & std::byte{0x3F}) | std::byte{0x80};  // The variant of RFC 4122.
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    appendHex(text, bytes[i], kUpperHex);
  }
  return text;
}

}  // namespace qx
