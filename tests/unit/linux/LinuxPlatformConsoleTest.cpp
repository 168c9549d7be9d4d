// The console in the settings of the Linux platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/FakeHost.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx {
namespace {

using testing::ElementsAre;

TEST(LinuxPlatformConsole, TheHostsConsoleTakesThePlaceOfStandardOutput) {
  FakeConsole console;
  LinuxPlatform platform({.console = &console});
  platform.seams().console.printLine("to the host");
  EXPECT_THAT(console.lines(), ElementsAre("to the host"));
}

TEST(LinuxPlatformConsole, WithoutOneLinesGoToStandardOutput) {
  LinuxPlatform platform;
  testing::internal::CaptureStdout();
  platform.seams().console.printLine("to everybody");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "to everybody\n");
}

}  // namespace
}  // namespace qx
