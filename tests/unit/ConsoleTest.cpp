// What the library prints reaches the console of the installed platform, and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Classes/AWSDownloader.h"
#include "Classes/UserTaskStorage.h"
#include "fakes/FakePlatform.h"
#include "fakes/PlatformWith.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() {
    Platform::install(platformWith(fakes_.seams(), console_));
    fakes_.files.setDocumentDirectories({"/documents"});
    testing::internal::CaptureStdout();
  }
  ~ConsoleTest() override { EXPECT_THAT(testing::internal::GetCapturedStdout(), IsEmpty()); }

  // Never destroyed: the library's shared instances hold on to them.
  FakePlatform& fakes_ = *new FakePlatform;
  FakeConsole& console_ = *new FakeConsole;
};

TEST_F(ConsoleTest, UserDirectoryThatCannotBeMadeIsPrintedThere) {
  fakes_.files.failAll(MemoryFiles::Operation::createDirectory);
  const UserTaskStorage storage("u1");
  EXPECT_THAT(console_.lines(), ElementsAre("/documents/aws-0011/u1: Input/output error"));
}

TEST_F(ConsoleTest, UserIdThatCannotNameADirectoryIsPrintedThere) {
  const UserTaskStorage storage("../u2");
  EXPECT_THAT(console_.lines(), ElementsAre("the user id cannot name a directory"));
}

TEST_F(ConsoleTest, CacheDirectoryThatCannotBeMadeIsPrintedThere) {
  fakes_.files.failAll(MemoryFiles::Operation::createDirectory);
  AWSDownloader::cachePath("a.jpg");
  EXPECT_THAT(console_.lines(),
              ElementsAre("/documents/com.qxuploader.download.cache: Input/output error"));
}

}  // namespace
}  // namespace qx
