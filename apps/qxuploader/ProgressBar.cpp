#include "ProgressBar.h"

#include <algorithm>

#include "Text.h"

namespace qx::app {
namespace {

/// This time is long enough for a calm rate and short enough to follow a change.
constexpr double kWindowSeconds = 5;

}  // namespace

void ProgressBar::update(double fraction, std::uint64_t done, std::uint64_t total, double now) {
  fraction_ = std::clamp(fraction, 0.0, 1.0);
  done_ = done;
  total_ = total;
  readings_.emplace_back(now, done);
  while (readings_.size() > 2 && readings_.front().first < now - kWindowSeconds) {
    readings_.pop_front();
  }
}

double ProgressBar::rate() const {
  if (readings_.size() < 2) return 0;
  const auto& [firstTime, firstBytes] = readings_.front();
  const auto& [lastTime, lastBytes] = readings_.back();
  if (lastTime <= firstTime || lastBytes < firstBytes) return 0;
  return static_cast<double>(lastBytes - firstBytes) / (lastTime - firstTime);
}

double ProgressBar::secondsLeft() const {
  const double speed = rate();
  if (speed <= 0 || total_ < done_ || total_ == 0) return -1;
  return static_cast<double>(total_ - done_) / speed;
}

std::string ProgressBar::text(const std::string& name, std::size_t columns) const {
  const auto percent = static_cast<unsigned>(fraction_ * 100);
  const std::string number = std::to_string(percent);
  std::string tail = "  " + bytesText(done_);
  if (total_ > 0) tail += "/" + bytesText(total_);
  tail += "  " + bytesText(static_cast<std::uint64_t>(rate())) + "/s  " +
          durationText(secondsLeft()) + " left";
  constexpr std::size_t kWidth = 20;
  const auto filled = static_cast<std::size_t>(fraction_ * kWidth);
  const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '-');
  const std::string head = "  " + std::string(3 - number.size(), ' ') + number + "% [" + bar + "]";
  const std::size_t taken = head.size() + tail.size();
  // On a narrow terminal the name is shortened first, then the figures are.
  const std::string shown = cut(printable(name), columns > taken + 8 ? columns - taken : 8);
  return cut(shown + head + tail, columns);
}

}  // namespace qx::app
