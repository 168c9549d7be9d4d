// Time, randomness and identifiers from the kernel.
//
// Threads: no state; every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Clock.h"

namespace qx {

class LinuxClock : public Clock {
 public:
  double now() override;
};

class LinuxRandom : public Random {
 public:
  std::uint32_t next() override;
};

class LinuxUuid : public Uuid {
 public:
  std::string random() override;
};

}  // namespace qx
