#include "Classes/Log.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

class LogTest : public testing::Test {
 protected:
  void logOne(int level = kLogError, std::string_view source = "QXAwsUploader/AWSConfigure") {
    log(library.platform, level, "host error", source, "full(configParameters:)", 42);
  }

  FakePlatform& platform_ = FakePlatform::kept();
  Library& library = keptLibrary(platform_.seams());
};

TEST_F(LogTest, RecordCarriesLevelMessageModuleSourceFunctionAndLine) {
  logOne();
  ASSERT_EQ(platform_.logger.records().size(), 1U);
  const LogRecord record = platform_.logger.records()[0];
  EXPECT_EQ(record.level, 5);
  EXPECT_EQ(record.message, "host error");
  EXPECT_EQ(record.module, "QXAwsUploader");
  EXPECT_EQ(record.source, "QXAwsUploader/AWSConfigure");
  EXPECT_EQ(record.function, "full(configParameters:)");
  EXPECT_EQ(record.line, 42);
}

TEST_F(LogTest, ModuleEndsAtTheFirstSlash) {
  logOne(kLogError, "A/B/C");
  EXPECT_EQ(platform_.logger.records().at(0).module, "A");
}

TEST_F(LogTest, SourceWithoutASlashHasNoModule) {
  logOne(kLogError, "AWSConfigure");
  EXPECT_EQ(platform_.logger.records().at(0).module, "n/a");
  EXPECT_EQ(platform_.logger.records().at(0).source, "AWSConfigure");
}

TEST_F(LogTest, ProductionWritesNothing) {
  platform_.mediator.setProduction(true);
  logOne();
  EXPECT_TRUE(platform_.logger.records().empty());
}

TEST_F(LogTest, HostWithoutAnAnswerCountsAsProduction) {
  platform_.mediator.answer("QXConfig_currentEnvironmentIsProduction", Value());
  logOne();
  EXPECT_TRUE(platform_.logger.records().empty());
}

TEST_F(LogTest, AnswerThatIsNoBooleanCountsAsProduction) {
  for (const Value& answer : {Value(0), Value("false"), Value(0.0)}) {
    platform_.mediator.answer("QXConfig_currentEnvironmentIsProduction", answer);
    logOne();
  }
  EXPECT_TRUE(platform_.logger.records().empty());
}

TEST_F(LogTest, EnvironmentIsAskedForEachRecord) {
  logOne();
  platform_.mediator.setProduction(true);
  logOne();
  platform_.mediator.setProduction(false);
  logOne();
  EXPECT_EQ(platform_.logger.records().size(), 2U);
}

TEST_F(LogTest, LevelBelowTheThresholdIsNotWritten) {
  platform_.logger.setThreshold(3);
  logOne(kLogNote);
  EXPECT_TRUE(platform_.logger.records().empty());
}

TEST_F(LogTest, LevelAtTheThresholdIsWritten) {
  platform_.logger.setThreshold(2);
  logOne(kLogNote);
  platform_.logger.setThreshold(5);
  logOne(kLogError);
  EXPECT_EQ(platform_.logger.records().size(), 2U);
}

}  // namespace
}  // namespace qx
