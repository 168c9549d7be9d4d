// The bar of one transfer: share done, amount, rate and time left.
//
// Threads: one thread at a time; no clock of its own.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace qx::app {

class ProgressBar {
 public:
  /// Records how far the transfer is at `now` (seconds). `total` 0 means unknown.
  void update(double fraction, std::uint64_t done, std::uint64_t total, double now);
  /// "photo.jpg  45% [#########-----------]  4.5 MiB/10.0 MiB  1.2 MiB/s  5 s left".
  std::string text(const std::string& name, std::size_t columns) const;
  /// Bytes a second over the last few seconds; 0 before there are two readings.
  double rate() const;
  /// Seconds until the end at that rate; negative when it cannot be known.
  double secondsLeft() const;

 private:
  double fraction_ = 0;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
  /// (time, bytes) of the last seconds, the oldest first.
  std::deque<std::pair<double, std::uint64_t>> readings_;
};

}  // namespace qx::app
