// Time, randomness and identifiers.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

namespace qx {

class Clock {
 public:
  virtual ~Clock() = default;
  /// Seconds since 1970-01-01T00:00:00Z, with its fraction.
  virtual double now() = 0;
};

class Random {
 public:
  virtual ~Random() = default;
  /// Uniform over all 32-bit values, unpredictable.
  virtual std::uint32_t next() = 0;
};

class Uuid {
 public:
  virtual ~Uuid() = default;
  /// A fresh random UUID in canonical form, 36 characters, upper case.
  virtual std::string random() = 0;
};

}  // namespace qx
