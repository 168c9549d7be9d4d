// The contract of a console, for the fake and for standard output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakeHost.h"
#include "platform/Console.h"

namespace qx {
namespace {

using testing::ElementsAre;

/// The lines that were printed on standard output.
class CapturedConsole {
 public:
  CapturedConsole() { testing::internal::CaptureStdout(); }
  Console& console() { return Console::standardOutput(); }
  std::vector<std::string> lines() {
    std::vector<std::string> lines;
    std::string text = testing::internal::GetCapturedStdout();
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
      lines.push_back(text.substr(0, end));
      text.erase(0, end + 1);
    }
    if (!text.empty()) lines.push_back("without a line break: " + text);
    return lines;
  }
};

class ScriptedConsole {
 public:
  Console& console() { return fake_; }
  std::vector<std::string> lines() { return fake_.lines(); }

 private:
  FakeConsole fake_;
};

template <typename T>
class ConsoleContract : public testing::Test {
 protected:
  T underTest_;
};

using Consoles = testing::Types<ScriptedConsole, CapturedConsole>;
TYPED_TEST_SUITE(ConsoleContract, Consoles);

TYPED_TEST(ConsoleContract, LinesComeWholeAndInOrder) {
  Console& console = this->underTest_.console();
  console.printLine("first");
  console.printLine("");
  console.printLine("ünd \x1b[31m as it stands");
  EXPECT_THAT(this->underTest_.lines(), ElementsAre("first", "", "ünd \x1b[31m as it stands"));
}

}  // namespace
}  // namespace qx
