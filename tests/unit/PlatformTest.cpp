#include "platform/Platform.h"

#include <gtest/gtest.h>

#include "fakes/FakeHost.h"
#include "fakes/FakePlatform.h"

namespace qx {
namespace {

class PlatformTest : public testing::Test {
 protected:
  FakePlatform fakes_;
  const Platform original_ = fakes_.seams();
};

/// One object that implements two seams.
class LoggerAndConsole : public FakeLogger, public FakeConsole {};

TEST_F(PlatformTest, WithOneObjectTakesAllOtherSeamsFromTheOriginal) {
  MemoryFiles files;
  const Platform platform = original_.with(files);
  EXPECT_EQ(&platform.files, &files);
  EXPECT_EQ(&platform.mediator, &fakes_.mediator);
  EXPECT_EQ(&platform.logger, &fakes_.logger);
  EXPECT_EQ(&platform.notifications, &fakes_.notifications);
  EXPECT_EQ(&platform.trackingEvents, &fakes_.trackingEvents);
  EXPECT_EQ(&platform.messageClients, &fakes_.messageClients);
  EXPECT_EQ(&platform.uploadClients, &fakes_.uploadClients);
  EXPECT_EQ(&platform.reachability, &fakes_.reachability);
  EXPECT_EQ(&platform.objectStore, &fakes_.objectStore);
  EXPECT_EQ(&platform.propertyLists, &fakes_.propertyLists);
  EXPECT_EQ(&platform.json, &fakes_.json);
  EXPECT_EQ(&platform.imageHeaders, &fakes_.imageHeaders);
  EXPECT_EQ(&platform.digests, &fakes_.digests);
  EXPECT_EQ(&platform.dispatch, &fakes_.dispatch);
  EXPECT_EQ(&platform.random, &fakes_.random);
  EXPECT_EQ(&platform.uuid, &fakes_.uuid);
  EXPECT_EQ(&platform.clock, &fakes_.clock);
  EXPECT_EQ(&platform.console, &Console::standardOutput());
}

TEST_F(PlatformTest, ObjectThatImplementsTwoSeamsStandsForBoth) {
  LoggerAndConsole both;
  const Platform platform = original_.with(both);
  EXPECT_EQ(&platform.logger, static_cast<QXLogger*>(&both));
  EXPECT_EQ(&platform.console, static_cast<Console*>(&both));
  EXPECT_EQ(&platform.files, &fakes_.files);
}

TEST_F(PlatformTest, LastOfTwoObjectsForOneSeamCounts) {
  MemoryFiles first;
  MemoryFiles second;
  FakeClock clock;
  const Platform platform = original_.with(first, clock, second);
  EXPECT_EQ(&platform.files, &second);
  EXPECT_EQ(&platform.clock, &clock);
}

TEST_F(PlatformTest, OriginalKeepsItsSeams) {
  MemoryFiles files;
  (void)original_.with(files);
  EXPECT_EQ(&original_.files, &fakes_.files);
}

}  // namespace
}  // namespace qx
