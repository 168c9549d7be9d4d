#include <string>
#include <vector>

#include "unit/Target_UploaderFixture.h"

namespace qx {
namespace {

// ---- Missing parameters of the upload actions

class UploadMissing : public TargetUploaderTest, public testing::WithParamInterface<Missing> {};

TEST_P(UploadMissing, IsLoggedAndNothingElseHappens) {
  perform("Action_Upload:", GetParam().value.isNull()
                                ? without(uploadParameters(), GetParam().key)
                                : with(uploadParameters(), GetParam().key, GetParam().value));
  expectOnlyLog(GetParam().message, "Action_Upload(_:)");
  expectNothingStarted();
}

INSTANTIATE_TEST_SUITE_P(
    Keys, UploadMissing,
    testing::Values(
        Missing{"scope", Value(), "miss scope"}, Missing{"scope", 1, "miss scope"},
        Missing{"complete", Value(), "miss complete"}, Missing{"complete", "text", "miss complete"},
        Missing{"complete", Value::callback<HostUploadComplete>(nullptr), "miss complete"},
        Missing{"complete", Value::callback<HostDownloadProgress>([](double) {}), "miss complete"},
        Missing{"data", Value(), "miss data"}, Missing{"data", "text", "miss data"},
        Missing{"suffix", Value(), "miss suffix"}, Missing{"suffix", 5, "miss suffix"}));

TEST_F(TargetUploaderTest, UploadNamesTheFirstMissingKeyOnly) {
  const std::vector<std::string> order{"scope", "complete", "data", "suffix"};
  Dictionary parameters;
  for (const std::string& key : order) {
    perform("Action_Upload:", parameters);
    EXPECT_EQ(platform.logger.messages().back(), "miss " + key);
    parameters[key] = uploadParameters().at(key);
  }
  EXPECT_EQ(platform.logger.records().size(), 4U);
}

class BackgroundMissing : public TargetUploaderTest, public testing::WithParamInterface<Missing> {};

TEST_P(BackgroundMissing, IsLoggedAndNothingElseHappens) {
  perform("Action_BackgroundUpload:",
          GetParam().value.isNull()
              ? without(backgroundParameters(), GetParam().key)
              : with(backgroundParameters(), GetParam().key, GetParam().value));
  expectOnlyLog(GetParam().message, "Action_BackgroundUpload(_:)");
  expectNothingStarted();
}

INSTANTIATE_TEST_SUITE_P(Keys, BackgroundMissing,
                         testing::Values(Missing{"scope", Value(), "miss scope"},
                                         Missing{"scope", 1, "miss scope"},
                                         Missing{"data", Value(), "miss data"},
                                         Missing{"data", "text", "miss data"},
                                         Missing{"suffix", Value(), "miss suffix"},
                                         Missing{"suffix", true, "miss suffix"}));

TEST_F(TargetUploaderTest, BackgroundUploadNamesTheFirstMissingKeyOnly) {
  Dictionary parameters;
  for (const std::string key : {"scope", "data", "suffix"}) {
    perform("Action_BackgroundUpload:", parameters);
    EXPECT_EQ(platform.logger.messages().back(), "miss " + key);
    parameters[key] = backgroundParameters().at(key);
  }
  EXPECT_EQ(platform.logger.records().size(), 3U);
}

class ImageMissing : public TargetUploaderTest, public testing::WithParamInterface<Missing> {};

TEST_P(ImageMissing, IsLoggedAndNothingElseHappens) {
  perform("Action_BackgroundUploadImage:",
          GetParam().value.isNull() ? without(imageParameters(), GetParam().key)
                                    : with(imageParameters(), GetParam().key, GetParam().value));
  expectOnlyLog(GetParam().message, "Action_BackgroundUploadImage(_:)");
  expectNothingStarted();
}

INSTANTIATE_TEST_SUITE_P(
    Keys, ImageMissing,
    testing::Values(Missing{"scope", Value(), "miss scope"}, Missing{"scope", 1, "miss scope"},
                    Missing{"data", Value(), "miss data"}, Missing{"data", "image", "miss data"},
                    Missing{"itemId", Value(), "miss itemId"}, Missing{"itemId", 77, "miss itemId"},
                    Missing{"suffix", Value(), "miss suffix"}, Missing{"suffix", 5, "miss suffix"},
                    Missing{"data", Data("no image"), "miss image"},
                    Missing{"data", Data(), "miss image"}));

TEST_F(TargetUploaderTest, ImageUploadNamesTheFirstMissingKeyOnly) {
  const Dictionary full = imageParameters();
  Dictionary parameters;
  for (const std::string key : {"scope", "data", "itemId", "suffix"}) {
    perform("Action_BackgroundUploadImage:", parameters);
    EXPECT_EQ(platform.logger.messages().back(), "miss " + key);
    parameters[key] = key == "data" ? Value(Data("no image")) : full.at(key);
  }
  perform("Action_BackgroundUploadImage:", parameters);
  EXPECT_EQ(platform.logger.messages().back(), "miss image");
  EXPECT_EQ(platform.logger.records().size(), 5U);
}

}  // namespace
}  // namespace qx
