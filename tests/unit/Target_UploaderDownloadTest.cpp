#include <optional>
#include <utility>
#include <vector>

#include "unit/Target_UploaderFixture.h"

namespace qx {
namespace {

// ---- Action_Download

class DownloadAction : public TargetUploaderTest {
 protected:
  DownloadAction() {
    platform.objectStore.put("photos", "u/7/a.jpg", Data("image"));
    platform.objectStore.reportProgress({{1, 2}});
  }
  Value downloadComplete() {
    return Value::callback<HostDownloadComplete>(
        [this](std::optional<Url> location, std::optional<Error> error) {
          results.emplace_back(location, error);
        });
  }
  Value progress() {
    return Value::callback<HostDownloadProgress>(
        [this](double fraction) { fractions.push_back(fraction); });
  }
  static Dictionary parameters() {
    return {{"url", "https://cdn.test/u/7/a.jpg"}, {"scope", "avatar"}};
  }

  std::vector<std::pair<std::optional<Url>, std::optional<Error>>> results;
  std::vector<double> fractions;
};

TEST_F(DownloadAction, ReportsProgressAndResult) {
  perform("Action_Download:",
          with(with(parameters(), "progress", progress()), "complete", downloadComplete()));
  EXPECT_TRUE(results.empty());
  run();
  EXPECT_EQ(fractions, std::vector<double>{0.5});
  ASSERT_EQ(results.size(), 1U);
  EXPECT_EQ(results[0].first, Url::file("/documents/com.qxuploader.download.cache/a.jpg"));
  EXPECT_FALSE(results[0].second);
}

TEST_F(DownloadAction, ReportsAFailure) {
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "NoSuchKey"});
  perform("Action_Download:", with(parameters(), "complete", downloadComplete()));
  run();
  ASSERT_EQ(results.size(), 1U);
  EXPECT_FALSE(results[0].first);
  EXPECT_EQ(results[0].second, (Error{"ObjectStore", 2, "NoSuchKey"}));
}

TEST_F(DownloadAction, RunsWithoutCallbacks) {
  perform("Action_Download:", parameters());
  run();
  EXPECT_EQ(platform.objectStore.downloads().size(), 1U);
  EXPECT_EQ(platform.mediator.trackedEvents().at(0).at("status"), Value("success"));
}

TEST_F(DownloadAction, MistypedCallbacksCountAsAbsentSilently) {
  Dictionary mistyped = parameters();
  mistyped["progress"] = downloadComplete();
  mistyped["complete"] = "text";
  perform("Action_Download:", mistyped);
  run();
  EXPECT_TRUE(results.empty());
  EXPECT_EQ(platform.objectStore.downloads().size(), 1U);
  EXPECT_TRUE(platform.logger.records().empty());
}

class DownloadMissing : public DownloadAction, public testing::WithParamInterface<Missing> {};

TEST_P(DownloadMissing, IsLoggedAndNothingElseHappens) {
  const Dictionary full = with(parameters(), "complete", downloadComplete());
  perform("Action_Download:", GetParam().value.isNull()
                                  ? without(full, GetParam().key)
                                  : with(full, GetParam().key, GetParam().value));
  expectOnlyLog(GetParam().message, "Action_Download(_:)");
  expectNothingStarted();
  EXPECT_TRUE(results.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Keys, DownloadMissing,
    testing::Values(Missing{"url", Value(), "missing url"}, Missing{"url", 5, "missing url"},
                    Missing{"url", HostObject::of(Url::file("/a.jpg")), "missing url"},
                    Missing{"scope", Value(), "missing scope"},
                    Missing{"scope", 5, "missing scope"}));

TEST_F(DownloadAction, MissingUrlIsNamedBeforeMissingScope) {
  perform("Action_Download:", {});
  expectOnlyLog("missing url", "Action_Download(_:)");
}

}  // namespace
}  // namespace qx
