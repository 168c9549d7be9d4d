// The progress bar of one transfer: the share that is done, the amount, the rate and the time left.
//
// Threads: one thread at a time. The class has no clock of its own.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

namespace qx::app {

class ProgressBar {
 public:
  /// Records the progress of the transfer at the time `now` (seconds). A `total` of 0 is unknown.
  void update(double fraction, std::uint64_t done, std::uint64_t total, double now);
  /// The line "photo.jpg  45% [#########-----------]  4.5 MiB/10.0 MiB  1.2 MiB/s  5 s left".
  std::string text(const std::string& name, std::size_t columns) const;
  /// The bytes per second over the last few seconds. 0 before there are two readings.
  double rate() const;
  /// The seconds until the end at that rate. Negative when they are unknown.
  double secondsLeft() const;

 private:
  double fraction_ = 0;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
  /// Pairs of time and bytes of the last seconds, the oldest first.
  std::deque<std::pair<double, std::uint64_t>> readings_;
};

}  // namespace qx::app
