#include "platforms/shared/Mediator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/FakeHost.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MediatorTest : public testing::Test {
 protected:
  void answerProduction(bool production) {
    mediator_.answer("QXConfig_currentEnvironmentIsProduction",
                     [production] { return Value(production); });
  }

  FakeLogger logger_;
  Mediator mediator_{&logger_};
};

class Deaf : public MediatorTarget {
 public:
  bool performAction(std::string_view /*action*/, const Dictionary& /*parameters*/) override {
    return false;
  }
};

TEST_F(MediatorTest, WhatIsUnknownWritesOneLineEachOutsideProduction) {
  answerProduction(false);
  mediator_.registerTarget("Target_X", [] { return std::make_unique<Deaf>(); });
  mediator_.performTarget("Target_Y", "Action_A:", {});
  mediator_.performTarget("Target_X", "Action_B:", {});
  EXPECT_TRUE(mediator_.perform("Account_GetUserId", {}).isNull());
  EXPECT_THAT(logger_.messages(),
              ElementsAre("unknown target Target_Y", "unknown action Action_B: of Target_X",
                          "unknown selector Account_GetUserId"));
  const LogRecord record = logger_.records().front();
  EXPECT_EQ(record.level, 5);
  EXPECT_EQ(record.module, "QXAwsUploader");
  EXPECT_EQ(record.source, "QXAwsUploader/Mediator");
  EXPECT_GT(record.line, 0);
}

TEST_F(MediatorTest, NothingIsWrittenInProduction) {
  answerProduction(true);
  mediator_.perform("Account_GetUserId", {});
  EXPECT_THAT(logger_.messages(), IsEmpty());
}

TEST_F(MediatorTest, AnUnknownEnvironmentCountsAsProductionAndIsNotLogged) {
  mediator_.perform("QXConfig_currentEnvironmentIsProduction", {});
  mediator_.perform("Account_GetUserId", {});
  EXPECT_THAT(logger_.messages(), IsEmpty());
}

TEST_F(MediatorTest, TheThresholdKeepsLinesOut) {
  answerProduction(false);
  logger_.setThreshold(6);
  mediator_.perform("Account_GetUserId", {});
  EXPECT_THAT(logger_.messages(), IsEmpty());
  logger_.setThreshold(5);
  mediator_.perform("Account_GetUserId", {});
  EXPECT_EQ(logger_.messages().size(), 1U);
}

TEST_F(MediatorTest, ALoggerThatAsksTheUnknownIsNotAskedToLogThatToo) {
  class AskingLogger : public FakeLogger {
   public:
    int threshold() override {
      mediator->perform("Log_Threshold", {});
      return FakeLogger::threshold();
    }
    Mediator* mediator = nullptr;
  };
  AskingLogger logger;
  Mediator mediator(&logger);
  logger.mediator = &mediator;
  mediator.answer("QXConfig_currentEnvironmentIsProduction", [] { return Value(false); });
  mediator.perform("Account_GetUserId", {});
  EXPECT_THAT(logger.messages(), ElementsAre("unknown selector Account_GetUserId"));
}

}  // namespace
}  // namespace qx
