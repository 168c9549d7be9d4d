#include "platform/Console.h"

#include <iostream>

namespace qx {

Console& Console::standardOutput() {
  class StandardOutput : public Console {
   public:
    void printLine(std::string_view line) override { std::cout << line << std::endl; }
  };
  // The console is never destroyed, because threads of the library may print until the process
  // ends.
  static Console& instance = *new StandardOutput;
  return instance;
}

}  // namespace qx
