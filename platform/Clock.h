// Time, randomness and identifiers.
//
//     const double deadline = platform.clock.now() + 30;
//     const std::uint32_t dice = platform.random.next() % 6;
//     const std::string id = platform.uuid.random();  // "6F9619FF-8B86-4011-B42D-00C04FC964FF"
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

namespace qx {

class Clock {
 public:
  virtual ~Clock() = default;
  /// Seconds since 1970-01-01T00:00:00Z, with a fraction.
  virtual double now() = 0;
};

class Random {
 public:
  virtual ~Random() = default;
  /// An unpredictable number, uniform over all 32-bit values.
  virtual std::uint32_t next() = 0;
};

class Uuid {
 public:
  virtual ~Uuid() = default;
  /// A fresh random UUID in canonical form, 36 characters, upper case.
  virtual std::string random() = 0;
};

}  // namespace qx
