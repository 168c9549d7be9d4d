#include "Classes/ConfigParameters.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

class ConfigParametersTest : public testing::Test {
 protected:
  FakePlatform& platform_ = FakePlatform::kept();
  Library& library = keptLibrary(platform_.seams());
};

TEST_F(ConfigParametersTest, HostAnswersBecomeTheIdentity) {
  platform_.mediator.signIn("u1", "t1", "https://backend.test/api");
  const auto identity = ConfigParameters::readFromHost(platform_.mediator);
  EXPECT_EQ(identity.userId, "u1");
  EXPECT_EQ(identity.accessToken, "t1");
  ASSERT_TRUE(identity.hostURL);
  EXPECT_EQ(identity.hostURL->text(), "https://backend.test/api");
  EXPECT_TRUE(identity.isComplete());
}

TEST_F(ConfigParametersTest, HostIsAskedAnewEachTime) {
  platform_.mediator.signIn("u1", "t1", "https://backend.test");
  const auto first = ConfigParameters::readFromHost(platform_.mediator);
  platform_.mediator.signIn("u2", "t2", "https://other.test");
  const auto second = ConfigParameters::readFromHost(platform_.mediator);
  EXPECT_EQ(first.userId, "u1");
  EXPECT_EQ(second.userId, "u2");
  EXPECT_EQ(second.accessToken, "t2");
  EXPECT_EQ(second.hostURL->text(), "https://other.test");
}

TEST_F(ConfigParametersTest, MissingAnswersBecomeEmptyTextsAndNoUrl) {
  const auto identity = ConfigParameters::readFromHost(platform_.mediator);
  EXPECT_EQ(identity.userId, "");
  EXPECT_EQ(identity.accessToken, "");
  EXPECT_FALSE(identity.hostURL);
  EXPECT_FALSE(identity.isComplete());
}

TEST_F(ConfigParametersTest, AnswersThatAreNoTextsCountAsMissing) {
  platform_.mediator.answer("Account_GetUserId", Value(17));
  platform_.mediator.answer("Account_GetAccessToken", Value(true));
  platform_.mediator.answer("QXConfig_getServerAddress", Value(Dictionary{}));
  const auto identity = ConfigParameters::readFromHost(platform_.mediator);
  EXPECT_EQ(identity, (ConfigParameters{"", "", std::nullopt}));
}

TEST_F(ConfigParametersTest, AddressThatDoesNotParseLeavesNoUrl) {
  platform_.mediator.signIn("u1", "t1", "https://back end.test");
  const auto identity = ConfigParameters::readFromHost(platform_.mediator);
  EXPECT_FALSE(identity.hostURL);
  EXPECT_FALSE(identity.isComplete());
}

TEST_F(ConfigParametersTest, EachMissingPartMakesItIncomplete) {
  const auto url = Url::parse("https://backend.test");
  EXPECT_TRUE((ConfigParameters{"u", "t", url}).isComplete());
  EXPECT_FALSE((ConfigParameters{"", "t", url}).isComplete());
  EXPECT_FALSE((ConfigParameters{"u", "", url}).isComplete());
  EXPECT_FALSE((ConfigParameters{"u", "t", std::nullopt}).isComplete());
}

TEST_F(ConfigParametersTest, EqualityComparesAllThreeParts) {
  const auto url = Url::parse("https://backend.test");
  const ConfigParameters identity{"u", "t", url};
  EXPECT_EQ(identity, (ConfigParameters{"u", "t", url}));
  EXPECT_EQ((ConfigParameters{"u", "t", std::nullopt}), (ConfigParameters{"u", "t", std::nullopt}));
  EXPECT_FALSE(identity == (ConfigParameters{"u2", "t", url}));
  EXPECT_FALSE(identity == (ConfigParameters{"u", "t2", url}));
  EXPECT_FALSE(identity == (ConfigParameters{"u", "t", Url::parse("https://other.test")}));
  EXPECT_FALSE(identity == (ConfigParameters{"u", "t", std::nullopt}));
}

}  // namespace
}  // namespace qx
