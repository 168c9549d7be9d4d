// The lines for a host's developer about background uploads that cannot succeed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Target_Uploader.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class BackgroundMistakesTest : public UploadFixture {
 protected:
  std::vector<std::string> mistakes() {
    return target_.mistakes("Action_BackgroundUpload:",
                            {{"scope", "avatar"}, {"data", Data("x")}, {"suffix", "txt"}});
  }
  Target_Uploader target_{library};
};

TEST_F(BackgroundMistakesTest, BeforeSetUpAndWithoutACallbackBothAreTold) {
  EXPECT_THAT(
      mistakes(),
      ElementsAre(
          "\"Action_BackgroundUpload:\" does nothing before \"Action_SetUp:\" has applied "
          "the user's identity.",
          "Nobody hears how background uploads end until \"Action_RegisterBackground:\" has "
          "been sent."));
}

TEST_F(BackgroundMistakesTest, AfterSetUpAndWithACallbackNothingIsTold) {
  target_.performAction("Action_SetUp:", {{"needServerResize", false}});
  target_.performAction(
      "Action_RegisterBackground:",
      {{"callback", Value::callback<HostBackgroundCallback>(
                        [](std::string, std::optional<std::string>,
                           std::map<std::string, std::string>, std::optional<Error>) {})}});
  run();
  EXPECT_THAT(mistakes(), IsEmpty());
}

}  // namespace
}  // namespace qx
