#include "platforms/shared/SystemClock.h"

#include <sys/random.h>
#include <time.h>

#include <array>
#include <cstddef>

#include "platform/Error.h"

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
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::array<unsigned char, 16> bytes{};
  fillRandomly(bytes.data(), bytes.size());
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // Version 4: random.
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // The variant of RFC 4122.
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kHex[bytes[i] >> 4]);
    text.push_back(kHex[bytes[i] & 0x0F]);
  }
  return text;
}

}  // namespace qx
