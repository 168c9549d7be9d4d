// Time, randomness and identifiers from the kernel.
//
// Threads: no state. Every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Clock.h"

namespace qx {

class SystemClock : public Clock {
 public:
  double now() override;
};

class SystemRandom : public Random {
 public:
  std::uint32_t next() override;
};

class SystemUuid : public Uuid {
 public:
  std::string random() override;
};

}  // namespace qx
