#include "Classes/Target_Uploader.h"

#include <cstdint>
#include <limits>
#include <ostream>
#include <thread>

#include "Classes/AWSUploader.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

constexpr const char* kUpdateUrl = "v3/item/update_item_original_image_url";

class TargetUploaderTest : public UploadFixture {
 protected:
  struct Completed {
    std::optional<std::string> url;
    std::int64_t itemId = 0;
    std::optional<Error> error;
    std::string queue;
  };

  TargetUploaderTest() { Target_Uploader::registerWith(platform.mediator, library); }

  void perform(const std::string& action, const Dictionary& parameters) {
    platform.mediator.performTarget("Target_Uploader", action, parameters);
  }
  static Dictionary without(Dictionary parameters, const std::string& key) {
    parameters.erase(key);
    return parameters;
  }
  static Dictionary with(Dictionary parameters, const std::string& key, Value value) {
    parameters[key] = std::move(value);
    return parameters;
  }

  Value complete() {
    return Value::callback<HostUploadComplete>(
        [this](std::optional<std::string> url, std::int64_t itemId, std::optional<Error> error) {
          completed.push_back({url, itemId, error, platform.dispatch.currentQueueLabel()});
        });
  }
  Dictionary uploadParameters() {
    return {
        {"scope", "avatar"}, {"complete", complete()}, {"data", Data("bytes")}, {"suffix", "jpg"}};
  }
  static Dictionary backgroundParameters() {
    return {{"scope", "avatar"}, {"data", Data("bytes")}, {"suffix", "jpg"}};
  }
  Dictionary imageParameters() {
    platform.imageHeaders.add(Data("image"), {640, 480});
    return {{"scope", "avatar"}, {"data", Data("image")}, {"itemId", "77"}, {"suffix", "png"}};
  }

  /// Applies the identity, so that there is a scheduler, and keeps uploads waiting.
  void setUpOffline() {
    perform("Action_SetUp:", {{"needServerResize", false}});
    platform.reachability.setReachable(false);
    run();
  }
  /// The extra values of the only background upload that `action` starts.
  AWSParameterMap queuedExtra(const std::string& action, const Dictionary& parameters) {
    setUpOffline();
    perform(action, parameters);
    const auto stored = library.configure.scheduler.load()->localTaskExecutor();
    EXPECT_EQ(stored.size(), 1U);
    return stored.empty() ? AWSParameterMap() : stored.front()->task->extra();
  }
  /// The tags of the item of the only direct upload with these parameters, if it was tagged.
  std::optional<FakeTrackingEvents::TaggedItem> taggedBy(const Dictionary& parameters) {
    perform("Action_Upload:", parameters);
    run();
    const auto tagged = platform.trackingEvents.tagged();
    return tagged.empty() ? std::nullopt : std::optional(tagged.front());
  }
  void expectOnlyLog(const std::string& message, const std::string& function) {
    const auto records = platform.logger.records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 5);
    EXPECT_EQ(records[0].message, message);
    EXPECT_EQ(records[0].module, "QXAwsUploader");
    EXPECT_EQ(records[0].source, "QXAwsUploader/Target_Uploader");
    EXPECT_EQ(records[0].function, function);
    EXPECT_GT(records[0].line, 0);
  }
  /// Checks that nothing was stored, queued, sent or called back.
  void expectNothingStarted() {
    run();
    EXPECT_TRUE(completed.empty());
    EXPECT_TRUE(platform.messageClients.requests().empty());
    EXPECT_TRUE(platform.files.paths().empty());
    EXPECT_TRUE(platform.mediator.trackedEvents().empty());
    EXPECT_EQ(library.taskQueue->total(), 0);
    EXPECT_EQ(library.uploader.generateFileCount, 0);
  }

  std::vector<Completed> completed;
};

// ---- The target

TEST_F(TargetUploaderTest, KnowsTheSevenActionsAndNoOther) {
  Target_Uploader target(library);
  for (const char* action :
       {"Action_SetUp:", "Action_SetMaxBackgroundConcurrent:", "Action_RegisterBackground:",
        "Action_Upload:", "Action_BackgroundUpload:", "Action_BackgroundUploadImage:",
        "Action_Download:"}) {
    EXPECT_TRUE(target.performAction(action, {})) << action;
  }
  for (const char* action : {"", "Action_SetUp", "Action_Setup:", "Upload:", "Action_Delete:"}) {
    EXPECT_FALSE(target.performAction(action, {})) << action;
  }
}

TEST_F(TargetUploaderTest, IsFoundByItsName) {
  perform("Action_SetMaxBackgroundConcurrent:", {{"count", 3}});
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, 3);
  EXPECT_TRUE(platform.mediator.unknownActions().empty());
}

TEST_F(TargetUploaderTest, MissingParametersAreNotLoggedInProduction) {
  platform.mediator.setProduction(true);
  perform("Action_SetUp:", {});
  perform("Action_Upload:", {});
  perform("Action_Download:", {});
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, MissingParametersAreLoggedUpToTheThresholdOfFive) {
  platform.logger.setThreshold(6);
  perform("Action_SetUp:", {});
  EXPECT_TRUE(platform.logger.records().empty());
  platform.logger.setThreshold(5);
  perform("Action_SetUp:", {});
  EXPECT_EQ(platform.logger.messages(), std::vector<std::string>{"miss needServerResize"});
}

// ---- Action_SetUp

TEST_F(TargetUploaderTest, SetUpAppliesIdentityObserverAndItemCallback) {
  perform("Action_SetUp:", {{"needServerResize", true}});
  AWSConfigure& configure = library.configure;
  EXPECT_TRUE(configure.needServerResize);
  ASSERT_TRUE(configure.session.load()->configParameters);
  EXPECT_EQ(configure.session.load()->configParameters->userId, "123456");
  EXPECT_NE(configure.scheduler.load(), nullptr);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(configure.backgroundUploadItemCallback.load());
  EXPECT_TRUE(platform.messageClients.requests(kGetUploadConfig).empty());
}

TEST_F(TargetUploaderTest, SetUpAppliesTheIdentityBetweenTheSwitchesAndTheObserver) {
  int asked = 0;
  platform.mediator.answer("Account_GetUserId", [this, &asked](const std::vector<Value>&) {
    ++asked;
    EXPECT_TRUE(library.configure.needServerResize);
    EXPECT_TRUE(library.configure.resumeStoredTasks);
    EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 0U);
    EXPECT_FALSE(library.configure.backgroundUploadItemCallback.load());
    return Value("123456");
  });
  perform("Action_SetUp:", {{"needServerResize", true}, {"resumeStoredTasks", true}});
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
}

TEST_F(TargetUploaderTest, SetUpWithFalseDiffersInTheSwitchAlone) {
  library.configure.needServerResize = true;
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_FALSE(library.configure.needServerResize);
  EXPECT_TRUE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(library.configure.backgroundUploadItemCallback.load());
}

class NoBoolean : public TargetUploaderTest, public testing::WithParamInterface<Dictionary> {};

TEST_P(NoBoolean, SetsNothingUpAndIsLogged) {
  bool earlierCalled = false;
  library.configure.backgroundUploadItemCallback.store(
      [&earlierCalled](const auto&, const auto&, const auto&, const auto&) {
        earlierCalled = true;
      });
  library.configure.needServerResize = true;
  perform("Action_SetUp:", GetParam());
  expectOnlyLog("miss needServerResize", "Action_SetUp(_:)");
  EXPECT_TRUE(library.configure.needServerResize);
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 0U);
  library.configure.backgroundUploadItemCallback.load()("", std::nullopt, {}, std::nullopt);
  EXPECT_TRUE(earlierCalled);
}

INSTANTIATE_TEST_SUITE_P(Parameters, NoBoolean,
                         testing::Values(Dictionary{}, Dictionary{{"needServerResize", Value()}},
                                         Dictionary{{"needServerResize", 1}},
                                         Dictionary{{"needServerResize", "true"}},
                                         Dictionary{{"needserverresize", true}}));

TEST_F(TargetUploaderTest, UserChangeAppliesTheNewIdentity) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  platform.mediator.signIn("other", "token2", "https://backend.test");
  platform.notifications.post(kUserChangedNotification);
  EXPECT_EQ(library.configure.session.load()->configParameters->userId, "other");
}

TEST_F(TargetUploaderTest, SecondSetUpRegistersASecondObserver) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_SetUp:", {{"needServerResize", false}});
  const auto asked = platform.mediator.performed("Account_GetUserId").size();
  platform.notifications.post(kUserChangedNotification);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 2U);
  EXPECT_EQ(platform.mediator.performed("Account_GetUserId").size(), asked + 2);
}

TEST_F(TargetUploaderTest, SetUpWithoutIdentityStillObservesAndRoutes) {
  platform.mediator.signOut();
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_EQ(platform.notifications.observerCount(kUserChangedNotification), 1U);
  EXPECT_TRUE(library.configure.backgroundUploadItemCallback.load());
}

TEST_F(TargetUploaderTest, BackgroundSuccessIsReportedToTheBackendAndAFailureIsNot) {
  perform("Action_SetUp:", {{"needServerResize", false}});
  const auto callback = library.configure.backgroundUploadItemCallback.load();
  callback("avatar", "https://cdn.test/a.jpg", {{"uuid", "77"}}, Error{"AWSUploaderError", 3, ""});
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
  callback("avatar", std::nullopt, {{"uuid", "77"}}, std::nullopt);
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
  callback("avatar", "https://cdn.test/a.jpg", {{"uuid", "77"}}, std::nullopt);
  EXPECT_EQ(platform.messageClients.requests(kUpdateUrl).size(), 1U);
}

TEST_F(TargetUploaderTest, SetUpReplacesAnEarlierItemCallback) {
  bool earlierCalled = false;
  library.configure.backgroundUploadItemCallback.store(
      [&earlierCalled](const auto&, const auto&, const auto&, const auto&) {
        earlierCalled = true;
      });
  perform("Action_SetUp:", {{"needServerResize", false}});
  library.configure.backgroundUploadItemCallback.load()("", std::nullopt, {}, std::nullopt);
  EXPECT_FALSE(earlierCalled);
}

/// A data file that no log entry names. A storage that resumes moves it aside when it opens, which
/// is when the identity is applied.
constexpr const char* kOrphan = "/documents/aws-0011/123456/orphan.jpg";

TEST_F(TargetUploaderTest, SetUpResumesStoredTasksOfTheIdentityItApplies) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", true}});
  EXPECT_FALSE(platform.files.text(kOrphan));
}

class NoResume : public TargetUploaderTest, public testing::WithParamInterface<Value> {};

TEST_P(NoResume, LeavesTheFilesOfEarlierRunsAlone) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", GetParam()}});
  EXPECT_EQ(platform.files.text(kOrphan), "bytes");
  EXPECT_TRUE(platform.logger.records().empty());
}

INSTANTIATE_TEST_SUITE_P(Values, NoResume,
                         testing::Values(Value(), Value(false), Value(1), Value("true")));

TEST_F(TargetUploaderTest, SetUpWithoutTheResumeKeyResumesNothing) {
  platform.files.put(kOrphan, "bytes");
  perform("Action_SetUp:", {{"needServerResize", false}});
  EXPECT_EQ(platform.files.text(kOrphan), "bytes");
}

// ---- Action_SetMaxBackgroundConcurrent

class Concurrent : public TargetUploaderTest, public testing::WithParamInterface<std::int64_t> {};

TEST_P(Concurrent, CountIsStoredUnchanged) {
  perform("Action_SetMaxBackgroundConcurrent:", {{"count", GetParam()}});
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Counts, Concurrent,
                         testing::Values(1, 0, -5, std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min()));

TEST_F(TargetUploaderTest, CountOfAnotherTypeChangesNothingSilently) {
  for (const Dictionary& parameters :
       {Dictionary{}, Dictionary{{"count", "3"}}, Dictionary{{"count", 3.0}},
        Dictionary{{"count", true}},
        Dictionary{{"count", std::numeric_limits<std::uint64_t>::max()}}}) {
    perform("Action_SetMaxBackgroundConcurrent:", parameters);
  }
  EXPECT_EQ(library.configure.maxBackgroundConcurrentCount, 6);
  EXPECT_TRUE(platform.logger.records().empty());
}

// ---- Action_RegisterBackground

class RegisterBackground : public TargetUploaderTest {
 protected:
  struct Called {
    std::string scope;
    std::optional<std::string> url;
    std::map<std::string, std::string> extra;
    std::optional<Error> error;
  };
  Value recorder(std::vector<Called>& into) {
    return Value::callback<HostBackgroundCallback>(
        [&into](std::string scope, std::optional<std::string> url,
                std::map<std::string, std::string> extra, std::optional<Error> error) {
          into.push_back({scope, url, extra, error});
        });
  }
  std::vector<Called> called;
};

TEST_F(RegisterBackground, HostReceivesExtraValuesAsTexts) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  library.configure.backgroundUploadCallback.load()(
      "avatar", "https://cdn.test/a.jpg",
      {{"i", std::int64_t{5}}, {"s", "a"}, {"u", std::uint64_t{18446744073709551615U}}, {"d", 0.1}},
      std::nullopt);
  ASSERT_EQ(called.size(), 1U);
  EXPECT_EQ(called[0].scope, "avatar");
  EXPECT_EQ(called[0].url, "https://cdn.test/a.jpg");
  EXPECT_EQ(called[0].extra,
            (std::map<std::string, std::string>{
                {"i", "5"}, {"s", "a"}, {"u", "18446744073709551615"}, {"d", "0.1"}}));
  EXPECT_FALSE(called[0].error);
}

TEST_F(RegisterBackground, HostReceivesFailuresUnchanged) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  const Error error{"AWSUploaderError", 3, "413"};
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, error);
  ASSERT_EQ(called.size(), 1U);
  EXPECT_FALSE(called[0].url);
  EXPECT_TRUE(called[0].extra.empty());
  EXPECT_EQ(called[0].error, error);
}

TEST_F(RegisterBackground, LaterCallbackReplacesTheEarlier) {
  std::vector<Called> later;
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  perform("Action_RegisterBackground:", {{"callback", recorder(later)}});
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, std::nullopt);
  EXPECT_TRUE(called.empty());
  EXPECT_EQ(later.size(), 1U);
}

TEST_F(RegisterBackground, UnusableCallbackLeavesTheEarlierSilently) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  perform("Action_RegisterBackground:", {});
  perform("Action_RegisterBackground:", {{"callback", "text"}});
  perform("Action_RegisterBackground:", {{"callback", complete()}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(nullptr)}});
  library.configure.backgroundUploadCallback.load()("avatar", std::nullopt, {}, std::nullopt);
  EXPECT_EQ(called.size(), 1U);
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(RegisterBackground, NeedsNoSetUp) {
  perform("Action_RegisterBackground:", {{"callback", recorder(called)}});
  EXPECT_FALSE(library.configure.session.load()->configParameters);
  EXPECT_FALSE(library.configure.backgroundUploadItemCallback.load());
}

// ---- Missing parameters of the upload actions

struct Missing {
  const char* key;
  /// Null means that the key is absent.
  Value value;
  const char* message;
  friend std::ostream& operator<<(std::ostream& out, const Missing& missing) {
    return out << missing.key << (missing.value.isNull() ? " absent: " : " unusable: ")
               << missing.message;
  }
};

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

// ---- Action_Upload

TEST_F(TargetUploaderTest, UploadReturnsAtOnceAndCompletesOnTheMainQueue) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_Upload:", with(uploadParameters(), "itemId", "9"));
  EXPECT_TRUE(completed.empty());
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_EQ(completed[0].url, "https://cdn.test/u/7/1700000000-5420.jpg");
  EXPECT_EQ(completed[0].itemId, 9);
  EXPECT_FALSE(completed[0].error);
  EXPECT_EQ(completed[0].queue, "main");
  EXPECT_EQ(platform.objectStore.object("photos", "u/7/1700000000-5420.jpg"), Data("bytes"));
  EXPECT_EQ(library.uploader.generateFileCount, 1);
}

TEST_F(TargetUploaderTest, UploadNeedsNoSetUpAndIsNeitherQueuedNorStored) {
  perform("Action_Upload:", uploadParameters());
  run();
  EXPECT_EQ(completed.size(), 1U);
  EXPECT_EQ(library.taskQueue->total(), 0);
  EXPECT_TRUE(platform.files.paths().empty());
}

TEST_F(TargetUploaderTest, UploadFailureCarriesItsCodeInTheError) {
  platform.mediator.signOut();
  perform("Action_Upload:", uploadParameters());
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].url);
  EXPECT_EQ(completed[0].itemId, 0);
  EXPECT_EQ(completed[0].error,
            (Error{"AWSUploaderError", 102, "[Error] miss userId or accessToken"}));
}

TEST_F(TargetUploaderTest, UploadSendsTheHostsBytesFromWhereTheyLie) {
  TracedBytes bytes("payload");
  perform("Action_Upload:", with(uploadParameters(), "data", bytes.give()));
  run();
  EXPECT_EQ(platform.objectStore.uploads().at(0).data.bytes(), bytes.place);
}

TEST_F(TargetUploaderTest, EmptyBufferIsUploaded) {
  perform("Action_Upload:", with(uploadParameters(), "data", Data()));
  run();
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].error);
  EXPECT_TRUE(platform.objectStore.uploads().at(0).data.empty());
}

TEST_F(TargetUploaderTest, UploadSuffixKeepsItsDot) {
  perform("Action_Upload:", with(uploadParameters(), "suffix", "tar.gz"));
  run();
  EXPECT_TRUE(platform.objectStore.uploads().at(0).key.ends_with(".tar.gz"));
}

TEST_F(TargetUploaderTest, UploadsOfOneTickGetDifferentNames) {
  platform.random.push(1);
  platform.random.push(1);
  perform("Action_Upload:", uploadParameters());
  perform("Action_Upload:", uploadParameters());
  run();
  const auto uploads = platform.objectStore.uploads();
  ASSERT_EQ(uploads.size(), 2U);
  EXPECT_NE(uploads[0].key, uploads[1].key);
}

TEST_F(TargetUploaderTest, UploadsStartedOnTwoThreadsGetDifferentNames) {
  platform.random.push(1);
  platform.random.push(1);
  const Dictionary parameters = uploadParameters();
  std::thread other([&] { Target_Uploader(library).Action_Upload(parameters); });
  Target_Uploader(library).Action_Upload(parameters);
  other.join();
  run();
  const auto uploads = platform.objectStore.uploads();
  ASSERT_EQ(uploads.size(), 2U);
  EXPECT_NE(uploads[0].key, uploads[1].key);
  EXPECT_EQ(completed.size(), 2U);
}

TEST_F(TargetUploaderTest, UploadCarriesTheItemsTagsIntoTracking) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["itemId"] = "9";
  parameters["imageFrom"] = 2;
  parameters["tags"] = Array{"a", "b/c"};
  parameters["fields"] = Dictionary{{"k", 1}};
  const auto tagged = taggedBy(parameters);
  ASSERT_TRUE(tagged);
  EXPECT_EQ(tagged->itemType, "avatar");
  EXPECT_EQ(tagged->itemId, 9);
  EXPECT_EQ(tagged->imageSource, 2);
  EXPECT_EQ(tagged->tags, (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(tagged->fields, (Dictionary{{"k", std::int64_t{1}}}));
}

TEST_F(TargetUploaderTest, UploadIgnoresTheHostsExtra) {
  Dictionary parameters = uploadParameters();
  parameters["extra"] = Dictionary{{"itemType", "avatar"}, {"imageFrom", "1"}, {"itemId", "9"}};
  platform.mediator.setLongId(1);
  EXPECT_FALSE(taggedBy(parameters));
  EXPECT_EQ(completed.at(0).itemId, 1);
}

TEST_F(TargetUploaderTest, DisableToPQSStopsTheTaggingOfAnUploadWhenTrue) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["imageFrom"] = 2;
  parameters["disableToPQS"] = true;
  EXPECT_FALSE(taggedBy(parameters));
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 1U);
}

class DisableToPQS : public TargetUploaderTest, public testing::WithParamInterface<Value> {};

TEST_P(DisableToPQS, OfAnotherValueStopsNothing) {
  Dictionary parameters = uploadParameters();
  parameters["itemType"] = "avatar";
  parameters["imageFrom"] = 2;
  parameters["disableToPQS"] = GetParam();
  EXPECT_TRUE(taggedBy(parameters));
}

INSTANTIATE_TEST_SUITE_P(Values, DisableToPQS,
                         testing::Values(Value(false), Value(1), Value("1"), Value("true")));

// ---- Action_BackgroundUpload

TEST_F(TargetUploaderTest, BackgroundUploadWithoutIdentityOnlyCounts) {
  perform("Action_BackgroundUpload:", backgroundParameters());
  run();
  EXPECT_EQ(library.uploader.generateFileCount, 1);
  EXPECT_TRUE(platform.files.paths().empty());
}

TEST_F(TargetUploaderTest, BackgroundUploadStoresBytesUnderTheGeneratedName) {
  setUpOffline();
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_BackgroundUpload:", backgroundParameters());
  EXPECT_EQ(platform.files.text("/documents/aws-0011/123456/1700000000-5420.jpg"), "bytes");
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_F(TargetUploaderTest, BackgroundUploadReachesTheHostsCallback) {
  std::vector<std::optional<std::string>> urls;
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(
                            [&urls](std::string, std::optional<std::string> url,
                                    std::map<std::string, std::string>,
                                    std::optional<Error>) { urls.push_back(url); })}});
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_BackgroundUpload:", backgroundParameters());
  run();
  EXPECT_EQ(urls,
            std::vector<std::optional<std::string>>{"https://cdn.test/u/7/1700000000-5420.jpg"});
}

TEST_F(TargetUploaderTest, BackgroundUploadWithoutExtrasHasNone) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", backgroundParameters()), AWSParameterMap());
}

TEST_F(TargetUploaderTest, BackgroundUploadJoinsExtraAndItem) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"k", "v"}, {"itemType", "old"}};
  parameters["itemType"] = "item";
  parameters["itemId"] = "i77";
  parameters["imageFrom"] = -3;
  parameters["tags"] = Array{"a", "b/c"};
  parameters["fields"] = Dictionary{{"k", "v"}};
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"k", "v"},
                             {"itemType", "item"},
                             {"itemId", "i77"},
                             {"imageFrom", "-3"},
                             {"tags", R"(["a","b\/c"])"},
                             {"fields", R"({"k":"v"})"}}));
}

TEST_F(TargetUploaderTest, MistypedItemKeysLeaveTheEntriesOfExtra) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"itemType", "old"}, {"itemId", "o1"}, {"imageFrom", "0"}};
  parameters["itemType"] = 1;
  parameters["itemId"] = 2;
  parameters["imageFrom"] = "3";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"itemType", "old"}, {"itemId", "o1"}, {"imageFrom", "0"}}));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, TagsAndFieldsOfExtraAreRemoved) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"tags", "[]"}, {"fields", "{}"}, {"k", "v"}};
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters), (AWSParameterMap{{"k", "v"}}));
}

TEST_F(TargetUploaderTest, MistypedTagsAndFieldsRemoveThoseOfExtraToo) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"tags", "[]"}, {"fields", "{}"}, {"k", "v"}};
  parameters["tags"] = Array{"a", 1};
  parameters["fields"] = "text";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters), (AWSParameterMap{{"k", "v"}}));
}

TEST_F(TargetUploaderTest, ExtraWithAnythingButTextsIsIgnoredWhole) {
  Dictionary parameters = backgroundParameters();
  parameters["extra"] = Dictionary{{"k", "v"}, {"n", 5}};
  parameters["itemType"] = "item";
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:", parameters),
            (AWSParameterMap{{"itemType", "item"}}));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, ExtraOfAnotherTypeIsIgnored) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUpload:",
                        with(backgroundParameters(), "extra", Array{"k", "v"})),
            AWSParameterMap());
}

TEST_F(TargetUploaderTest, BackgroundUploadReadsNoDisableToPQS) {
  EXPECT_EQ(
      queuedExtra("Action_BackgroundUpload:", with(backgroundParameters(), "disableToPQS", true)),
      AWSParameterMap());
}

// ---- Action_BackgroundUploadImage

TEST_F(TargetUploaderTest, ImageUploadCarriesTheImagesAttributes) {
  EXPECT_EQ(queuedExtra("Action_BackgroundUploadImage:", imageParameters()),
            (AWSParameterMap{{"uuid", "77"},
                             {"OriginalImageWidthKey", "640"},
                             {"OriginalImageHeightKey", "480"},
                             {"OriginalImageFileSizeKey", "5"},
                             // The output of: printf image | sha1sum
                             {"OriginalImageSha1Key", "0e76292794888d4f1fa75fb3aff4ca27c58f56a6"},
                             {"OriginalImageFileFormatKey", "png"},
                             {"OriginalImageUseDetUploadKey", "false"},
                             {"itemId", "77"}}));
}

TEST_F(TargetUploaderTest, ImageUploadCarriesWhatTheHostAdds) {
  Dictionary parameters = imageParameters();
  parameters["useDetUpload"] = "true";
  parameters["updatePQS"] = true;
  parameters["tags"] = Array{"a"};
  parameters["fields"] = Dictionary{{"k", "v"}};
  const AWSParameterMap extra = queuedExtra("Action_BackgroundUploadImage:", parameters);
  EXPECT_EQ(extra.size(), 11U);
  EXPECT_EQ(extra.at("OriginalImageUseDetUploadKey"), AWSBasicParameter("true"));
  EXPECT_EQ(extra.at("updatePQS"), AWSBasicParameter("1"));
  EXPECT_EQ(extra.at("tags"), AWSBasicParameter(R"(["a"])"));
  EXPECT_EQ(extra.at("fields"), AWSBasicParameter(R"({"k":"v"})"));
}

TEST_F(TargetUploaderTest, ImageUploadWritesAFalseUpdatePQSAsZero) {
  const AWSParameterMap extra =
      queuedExtra("Action_BackgroundUploadImage:", with(imageParameters(), "updatePQS", false));
  EXPECT_EQ(extra.at("updatePQS"), AWSBasicParameter("0"));
}

TEST_F(TargetUploaderTest, ImageUploadTreatsMistypedOptionsAsAbsent) {
  Dictionary parameters = imageParameters();
  parameters["useDetUpload"] = true;
  parameters["updatePQS"] = "1";
  parameters["tags"] = "a";
  parameters["fields"] = Array{"a"};
  const AWSParameterMap extra = queuedExtra("Action_BackgroundUploadImage:", parameters);
  EXPECT_EQ(extra.size(), 8U);
  EXPECT_EQ(extra.at("OriginalImageUseDetUploadKey"), AWSBasicParameter("false"));
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(TargetUploaderTest, ImageUploadReadsNeitherExtraNorItemTypeNorImageFrom) {
  Dictionary parameters = imageParameters();
  parameters["extra"] = Dictionary{{"k", "v"}};
  parameters["itemType"] = "item";
  parameters["imageFrom"] = 1;
  EXPECT_EQ(queuedExtra("Action_BackgroundUploadImage:", parameters).size(), 8U);
}

TEST_F(TargetUploaderTest, ImageSizeIsTruncatedTowardZero) {
  platform.imageHeaders.add(Data("odd"), {99.9, -0.9});
  const AWSParameterMap extra =
      queuedExtra("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("odd")));
  EXPECT_EQ(extra.at("OriginalImageWidthKey"), AWSBasicParameter("99"));
  EXPECT_EQ(extra.at("OriginalImageHeightKey"), AWSBasicParameter("0"));
}

class ImpossibleLength : public TargetUploaderTest, public testing::WithParamInterface<double> {};

TEST_P(ImpossibleLength, StopsTheProcess) {
  Dictionary wide = imageParameters();
  platform.imageHeaders.add(Data("wide"), {GetParam(), 1});
  platform.imageHeaders.add(Data("tall"), {1, GetParam()});
  EXPECT_DEATH(
      perform("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("wide"))),
      "QXAwsUploader: fatal: ");
  EXPECT_DEATH(
      perform("Action_BackgroundUploadImage:", with(imageParameters(), "data", Data("tall"))),
      "QXAwsUploader: fatal: ");
}

INSTANTIATE_TEST_SUITE_P(Lengths, ImpossibleLength,
                         testing::Values(std::numeric_limits<double>::infinity(),
                                         -std::numeric_limits<double>::infinity(),
                                         std::numeric_limits<double>::quiet_NaN(), 0x1p63,
                                         -0x1.1p63));

TEST_F(TargetUploaderTest, FinishedImageUploadIsReportedToTheBackend) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  const auto requests = platform.messageClients.requests(kUpdateUrl);
  ASSERT_EQ(requests.size(), 1U);
  const std::map<std::string, Value> sent(requests[0].parameters.begin(),
                                          requests[0].parameters.end());
  EXPECT_EQ(sent.at("item_id"), Value(std::int64_t{77}));
}

TEST_F(TargetUploaderTest, FinishedImageUploadIsNotReportedWithoutSetUp) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
}

TEST_F(TargetUploaderTest, FailedImageUploadReachesTheHostAndNotTheBackend) {
  std::vector<std::optional<Error>> errors;
  perform("Action_SetUp:", {{"needServerResize", false}});
  perform("Action_RegisterBackground:",
          {{"callback", Value::callback<HostBackgroundCallback>(
                            [&errors](std::string, std::optional<std::string>,
                                      std::map<std::string, std::string>,
                                      std::optional<Error> error) { errors.push_back(error); })}});
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "AccessDenied"});
  perform("Action_BackgroundUploadImage:", imageParameters());
  run();
  EXPECT_EQ(errors,
            std::vector<std::optional<Error>>{(Error{"AWSUploaderError", 2, "AccessDenied"})});
  EXPECT_TRUE(platform.messageClients.requests(kUpdateUrl).empty());
}

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
