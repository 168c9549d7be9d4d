// The library prints its lines on the console of the installed platform and nowhere else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Classes/UserTaskStorage.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() {
    fakes_.files.setDocumentDirectories({"/documents"});
    testing::internal::CaptureStdout();
  }
  ~ConsoleTest() override { EXPECT_THAT(testing::internal::GetCapturedStdout(), IsEmpty()); }

  FakePlatform& fakes_ = FakePlatform::kept();
  FakeConsole& console_ = *new FakeConsole;  // Must live as long as the kept library.
  Library& library_ = keptLibrary(fakes_.seams().with(console_));
};

TEST_F(ConsoleTest, UserDirectoryThatCannotBeMadeIsPrintedThere) {
  fakes_.files.failAll(MemoryFiles::Operation::createDirectory);
  const UserTaskStorage storage(library_.platform, "u1");
  EXPECT_THAT(console_.lines(), ElementsAre("/documents/aws-0011/u1: Input/output error"));
}

TEST_F(ConsoleTest, UserIdThatCannotNameADirectoryIsPrintedThere) {
  const UserTaskStorage storage(library_.platform, "../u2");
  EXPECT_THAT(console_.lines(), ElementsAre("the user id cannot name a directory"));
}

TEST_F(ConsoleTest, CacheDirectoryThatCannotBeMadeIsPrintedThere) {
  fakes_.files.failAll(MemoryFiles::Operation::createDirectory);
  library_.downloader.cachePath("a.jpg");
  EXPECT_THAT(console_.lines(),
              ElementsAre("/documents/com.qxuploader.download.cache: Input/output error"));
}

}  // namespace
}  // namespace qx
