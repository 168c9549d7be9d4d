// Where the library prints what it tells by printing: a directory that could not be made.
//
// Threads: any thread.
#pragma once

#include <string_view>

namespace qx {

class Console {
 public:
  virtual ~Console() = default;
  /// Prints one line; `line` comes without its line break.
  virtual void printLine(std::string_view line) = 0;

  /// Prints on standard output, unless a host puts a console of its own in its place. Lives until
  /// the process ends.
  static Console& standardOutput();
};

}  // namespace qx
