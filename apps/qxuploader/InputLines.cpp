#include "InputLines.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace qx::app {

InputLines::InputLines(int fd, const StopEvent& stop)
    : fd_(fd), stop_(stop), buffer_(std::size_t{64} << 10) {}

InputLines::Next InputLines::next(std::string& line) {
  line.clear();
  bool tooLong = false;
  while (begin_ < end_ || fill()) {
    const auto first = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_);
    const auto last = buffer_.begin() + static_cast<std::ptrdiff_t>(end_);
    const auto lineBreak = std::find(first, last, '\n');
    const auto size = static_cast<std::size_t>(lineBreak - first);
    tooLong = tooLong || line.size() + size > kMostBytes;
    if (tooLong) {
      line = {};
    } else {
      line.append(first, lineBreak);
    }
    begin_ += size;
    if (lineBreak != last) {
      ++begin_;
      return tooLong ? Next::tooLong : Next::line;
    }
  }
  if (tooLong) return Next::tooLong;
  return line.empty() ? Next::end : Next::line;
}

bool InputLines::fill() {
  while (stop_.waitFor(fd_)) {
    const ssize_t n = ::read(fd_, buffer_.data(), buffer_.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    begin_ = 0;
    end_ = static_cast<std::size_t>(n);
    return true;
  }
  return false;
}

}  // namespace qx::app
