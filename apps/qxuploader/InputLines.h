// Reads lines of limited length from a file descriptor.
//
// Threads: one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "StopEvent.h"

namespace qx::app {

class InputLines {
 public:
  enum class Next { line, tooLong, end };

  /// `stop` ends the input, also during the wait for a line.
  InputLines(int fd, const StopEvent& stop);

  /// Waits for the next line and yields it without its line break. The text after the last line
  /// break is a line, too. `tooLong`: the line was longer than kMostBytes and is skipped.
  Next next(std::string& line);

  static constexpr std::size_t kMostBytes = std::size_t{64} << 20;

 private:
  /// Reads more bytes. False at the end and after an error.
  bool fill();

  const int fd_;
  const StopEvent& stop_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace qx::app
