// The place where the library prints lines, for example about a directory that cannot be made.
//
//     struct Lines : Console {  // Set LinuxSettings::console to one of these.
//       void printLine(std::string_view line) override { kept.emplace_back(line); }
//       std::vector<std::string> kept;
//     };
//
// Threads: lines may be printed from any thread.
#pragma once

#include <string_view>

#include "platform/Export.h"

namespace qx {

class QX_EXPORT Console {
 public:
  virtual ~Console() = default;
  /// Prints one line. `line` has no line break.
  virtual void printLine(std::string_view line) = 0;

  /// A console that prints on standard output. It lives until the process ends.
  static Console& standardOutput();
};

}  // namespace qx
