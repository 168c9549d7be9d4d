#include "Classes/AWSTracking.h"

#include <gtest/gtest.h>

#include <ostream>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

using Status = AWSTracking::Status;
using ENVType = AWSTracking::ENVType;

class AWSTrackingTest : public testing::Test {
 protected:
  /// The only event that was sent.
  Dictionary event() {
    const auto events = platform.mediator.trackedEvents();
    EXPECT_EQ(events.size(), 1U);
    return events.empty() ? Dictionary() : events.front();
  }
  std::size_t tagCalls() {
    return platform.trackingEvents.tagged().size() + platform.trackingEvents.updated().size();
  }
  /// The event of a successful upload with these extra values.
  void succeedWith(const AWSParameterMap& extra) {
    library.tracking.action(std::nullopt, std::nullopt, false, Status::success, ENVType::upload,
                            std::nullopt, &extra);
  }
  /// The extra values that full tagging needs.
  static AWSParameterMap item() {
    return {{"itemType", "avatar"},
            {"imageUrl", "https://cdn.test/a.jpg"},
            {"itemId", std::int64_t{42}},
            {"imageFrom", "2"}};
  }
  static AWSParameterMap itemWith(const std::string& key, AWSBasicParameter value) {
    AWSParameterMap extra = item();
    extra.insert_or_assign(key, std::move(value));
    return extra;
  }
  static AWSParameterMap itemWithout(const std::string& key) {
    AWSParameterMap extra = item();
    extra.erase(key);
    return extra;
  }

  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
};

// ---- action

TEST_F(AWSTrackingTest, EventCarriesEverythingThatIsGiven) {
  library.tracking.action(100, "text", true, Status::error, ENVType::config, 1.5, nullptr);
  EXPECT_EQ(event(), (Dictionary{{"code", "100"},
                                 {"message", "text"},
                                 {"mode", "1"},
                                 {"time", 1.5},
                                 {"status", "error"},
                                 {"type", "config"}}));
  const auto sent = platform.mediator.performed("Tracking_Event:parameters:");
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].arguments.at(0), Value("qx_aws"));
}

TEST_F(AWSTrackingTest, EventWithNothingGivenCarriesStatusAndTypeOnly) {
  library.tracking.action(std::nullopt, std::nullopt, std::nullopt, Status::success,
                          ENVType::upload, std::nullopt, nullptr);
  EXPECT_EQ(event(), (Dictionary{{"status", "success"}, {"type", "upload"}}));
}

TEST_F(AWSTrackingTest, EmptyMessageAndZeroesAreValues) {
  library.tracking.action(0, "", false, Status::error, ENVType::config, 0.0, nullptr);
  EXPECT_EQ(
      event(),
      (Dictionary{
          {"code", "0"}, {"message", ""}, {"time", 0.0}, {"status", "error"}, {"type", "config"}}));
}

TEST_F(AWSTrackingTest, FirstUploadThatIsFalseSendsNoMode) {
  library.tracking.action(std::nullopt, std::nullopt, false, Status::success, ENVType::upload,
                          std::nullopt, nullptr);
  EXPECT_FALSE(event().contains("mode"));
}

TEST_F(AWSTrackingTest, TypesHaveTheirTexts) {
  for (const ENVType type :
       {ENVType::config, ENVType::upload, ENVType::backgroundUpload, ENVType::download}) {
    library.tracking.action(std::nullopt, std::nullopt, std::nullopt, Status::success, type,
                            std::nullopt, nullptr);
  }
  std::vector<Value> types;
  for (const Dictionary& each : platform.mediator.trackedEvents()) {
    types.push_back(each.at("type"));
  }
  EXPECT_EQ(types, (std::vector<Value>{"config", "upload", "background_upload", "download"}));
}

// ---- Tagging

TEST_F(AWSTrackingTest, CompleteItemIsTaggedInFull) {
  AWSParameterMap extra = itemWith("tags", R"(["a","b\/c"])");
  extra.insert_or_assign("fields", R"({"k":1})");
  succeedWith(extra);
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 1U);
  const auto tagged = platform.trackingEvents.tagged();
  ASSERT_EQ(tagged.size(), 1U);
  EXPECT_EQ(tagged[0].itemType, "avatar");
  EXPECT_EQ(tagged[0].itemId, 42);
  EXPECT_EQ(tagged[0].imageUrl, "https://cdn.test/a.jpg");
  EXPECT_EQ(tagged[0].imageSource, 2);
  EXPECT_EQ(tagged[0].tags, (std::vector<std::string>{"a", "b/c"}));
  EXPECT_EQ(tagged[0].fields, (Dictionary{{"k", std::int64_t{1}}}));
  EXPECT_TRUE(platform.trackingEvents.updated().empty());
}

TEST_F(AWSTrackingTest, FullTaggingNeedsNeitherTagsNorFields) {
  succeedWith(item());
  const auto tagged = platform.trackingEvents.tagged();
  ASSERT_EQ(tagged.size(), 1U);
  EXPECT_FALSE(tagged[0].tags);
  EXPECT_FALSE(tagged[0].fields);
}

TEST_F(AWSTrackingTest, AbsentOrEmptyExtraTagsNothing) {
  library.tracking.action(std::nullopt, std::nullopt, false, Status::success, ENVType::upload,
                          std::nullopt, nullptr);
  succeedWith({});
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 2U);
  EXPECT_EQ(tagCalls(), 0U);
}

TEST_F(AWSTrackingTest, TaggingFollowsTheEventWhateverItsStatus) {
  const AWSParameterMap extra = item();
  library.tracking.action(1, "text", false, Status::error, ENVType::upload, std::nullopt, &extra);
  EXPECT_EQ(platform.trackingEvents.tagged().size(), 1U);
}

class ImageSource : public AWSTrackingTest,
                    public testing::WithParamInterface<std::pair<std::string, std::int64_t>> {};

TEST_P(ImageSource, BelowThreeIsTaggedInFull) {
  succeedWith(itemWith("imageFrom", GetParam().first));
  const auto tagged = platform.trackingEvents.tagged();
  ASSERT_EQ(tagged.size(), 1U);
  EXPECT_EQ(tagged[0].imageSource, GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Texts, ImageSource,
                         testing::Values(std::pair{"0", 0}, std::pair{"1", 1}, std::pair{"2", 2},
                                         std::pair{"-1", -1}, std::pair{"", 0}, std::pair{"abc", 0},
                                         std::pair{" 7", 0}, std::pair{"99999999999999999999", 0}));

struct Incomplete {
  const char* key;
  /// Nothing means that the key is absent.
  std::optional<AWSBasicParameter> value;
  friend std::ostream& operator<<(std::ostream& out, const Incomplete& item) {
    return out << item.key << (item.value ? " = " + item.value->toString() : " absent");
  }
};

class IncompleteItem : public AWSTrackingTest, public testing::WithParamInterface<Incomplete> {
 protected:
  static AWSParameterMap incomplete() {
    return GetParam().value ? itemWith(GetParam().key, *GetParam().value)
                            : itemWithout(GetParam().key);
  }
};

TEST_P(IncompleteItem, IsNotTagged) {
  AWSParameterMap extra = incomplete();
  extra.insert_or_assign("tags", R"(["a"])");
  succeedWith(extra);
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 1U);
  EXPECT_EQ(tagCalls(), 0U);
}

TEST_P(IncompleteItem, IsUpdatedWhenTheHostAskedForIt) {
  AWSParameterMap extra = incomplete();
  extra.insert_or_assign("updatePQS", "1");
  extra.insert_or_assign("tags", R"(["a"])");
  succeedWith(extra);
  EXPECT_TRUE(platform.trackingEvents.tagged().empty());
  const auto updated = platform.trackingEvents.updated();
  ASSERT_EQ(updated.size(), 1U);
  EXPECT_FALSE(updated[0].itemType);
  EXPECT_EQ(updated[0].itemId, 42);
  EXPECT_EQ(updated[0].tags, std::vector<std::string>{"a"});
  EXPECT_FALSE(updated[0].fields);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, IncompleteItem,
    testing::Values(Incomplete{"itemType", std::nullopt}, Incomplete{"itemType", std::int64_t{1}},
                    Incomplete{"imageUrl", std::nullopt}, Incomplete{"imageUrl", std::int64_t{1}},
                    Incomplete{"imageFrom", std::nullopt}, Incomplete{"imageFrom", std::int64_t{2}},
                    Incomplete{"imageFrom", 2.0}, Incomplete{"imageFrom", "3"},
                    Incomplete{"imageFrom", "4"}, Incomplete{"imageFrom", "9223372036854775807"}));

class ItemIdOfAnotherKind : public AWSTrackingTest,
                            public testing::WithParamInterface<std::optional<AWSBasicParameter>> {};

TEST_P(ItemIdOfAnotherKind, IsNeitherTaggedNorUpdated) {
  AWSParameterMap extra = GetParam() ? itemWith("itemId", *GetParam()) : itemWithout("itemId");
  extra.insert_or_assign("updatePQS", "1");
  extra.insert_or_assign("tags", R"(["a"])");
  succeedWith(extra);
  EXPECT_EQ(tagCalls(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ItemIdOfAnotherKind,
                         testing::Values(std::nullopt, AWSBasicParameter("42"),
                                         AWSBasicParameter(std::uint64_t{42}),
                                         AWSBasicParameter(42.0)));

TEST_F(AWSTrackingTest, DisableToPQSStopsFullTaggingButNotTheEvent) {
  AWSParameterMap extra = itemWith("disableToPQS", "1");
  // The library does not fall back to the update, either.
  extra.insert_or_assign("updatePQS", "1");
  extra.insert_or_assign("tags", R"(["a"])");
  succeedWith(extra);
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 1U);
  EXPECT_EQ(tagCalls(), 0U);
}

TEST_F(AWSTrackingTest, DisableToPQSIsTheTextOneAlone) {
  succeedWith(itemWith("disableToPQS", "0"));
  succeedWith(itemWith("disableToPQS", "true"));
  succeedWith(itemWith("disableToPQS", std::int64_t{1}));
  EXPECT_EQ(platform.trackingEvents.tagged().size(), 3U);
}

TEST_F(AWSTrackingTest, DisableToPQSDoesNotStopTheUpdate) {
  AWSParameterMap extra = itemWith("imageFrom", "3");
  extra.insert_or_assign("disableToPQS", "1");
  extra.insert_or_assign("updatePQS", "1");
  extra.insert_or_assign("fields", "{}");
  succeedWith(extra);
  const auto updated = platform.trackingEvents.updated();
  ASSERT_EQ(updated.size(), 1U);
  EXPECT_FALSE(updated[0].tags);
  EXPECT_EQ(updated[0].fields, Dictionary());
}

TEST_F(AWSTrackingTest, UpdatePQSIsTheTextOneAlone) {
  for (const AWSBasicParameter& value :
       {AWSBasicParameter("0"), AWSBasicParameter("true"), AWSBasicParameter(std::int64_t{1})}) {
    AWSParameterMap extra = itemWithout("itemType");
    extra.insert_or_assign("updatePQS", value);
    extra.insert_or_assign("tags", R"(["a"])");
    succeedWith(extra);
  }
  EXPECT_EQ(tagCalls(), 0U);
}

TEST_F(AWSTrackingTest, CompleteItemIsNotUpdatedToo) {
  AWSParameterMap extra = itemWith("updatePQS", "1");
  extra.insert_or_assign("tags", R"(["a"])");
  succeedWith(extra);
  EXPECT_EQ(platform.trackingEvents.tagged().size(), 1U);
  EXPECT_TRUE(platform.trackingEvents.updated().empty());
}

TEST_F(AWSTrackingTest, UpdateWithoutTagsAndFieldsIsNotSent) {
  AWSParameterMap extra{{"itemId", std::int64_t{42}}, {"updatePQS", "1"}};
  succeedWith(extra);
  extra.insert_or_assign("tags", "no JSON");
  extra.insert_or_assign("fields", "[]");
  succeedWith(extra);
  EXPECT_EQ(tagCalls(), 0U);
}

// ---- tracking

class AttemptTracking : public AWSTrackingTest {
 protected:
  FileTask fileTask(std::int64_t uploadCount) {
    return FileTask(platform.files, "a.jpg", "avatar", "a.jpg", uploadCount, item());
  }
  void track(const AWSCallbackStatus& status, const Task& task,
             std::optional<double> uploadTime = std::nullopt) {
    library.tracking.tracking(status, task, ENVType::backgroundUpload, uploadTime, &task.extra());
  }
  static AWSCallbackStatus failure() {
    return AWSCallbackStatus::failure(AWSErrorCode::keyNotMatch, "text");
  }
};

TEST_F(AttemptTracking, FailureSendsCodeAndMessageAndTagsNothing) {
  track(failure(), DataTask("a.jpg", "avatar", Data(), item()), 2.5);
  EXPECT_EQ(event(), (Dictionary{{"code", "101"},
                                 {"message", "text"},
                                 {"time", 2.5},
                                 {"status", "error"},
                                 {"type", "background_upload"}}));
  EXPECT_EQ(tagCalls(), 0U);
}

TEST_F(AttemptTracking, SuccessSendsTheTimeAndTagsTheItem) {
  track(AWSCallbackStatus::success(), DataTask("a.jpg", "avatar", Data(), item()), 2.5);
  EXPECT_EQ(event(),
            (Dictionary{{"time", 2.5}, {"status", "success"}, {"type", "background_upload"}}));
  EXPECT_EQ(platform.trackingEvents.tagged().size(), 1U);
}

TEST_F(AttemptTracking, SuccessWithoutUploadTimeSendsNoTime) {
  track(AWSCallbackStatus::success(), DataTask("a.jpg", "avatar", Data(), {}));
  EXPECT_FALSE(event().contains("time"));
}

TEST_F(AttemptTracking, ExtraAbsentTagsNothing) {
  library.tracking.tracking(AWSCallbackStatus::success(),
                            DataTask("a.jpg", "avatar", Data(), item()), ENVType::upload,
                            std::nullopt, nullptr);
  EXPECT_EQ(event().at("type"), Value("upload"));
  EXPECT_EQ(tagCalls(), 0U);
}

struct FirstUpload {
  bool succeeded;
  std::int64_t uploadCount;
  bool isFirst;
  friend std::ostream& operator<<(std::ostream& out, const FirstUpload& attempt) {
    return out << (attempt.succeeded ? "success" : "failure") << " at count "
               << attempt.uploadCount;
  }
};

class FirstUploadMode : public AttemptTracking, public testing::WithParamInterface<FirstUpload> {};

TEST_P(FirstUploadMode, IsToldByTheCountAsItStandsAtThatPoint) {
  track(GetParam().succeeded ? AWSCallbackStatus::success() : failure(),
        fileTask(GetParam().uploadCount));
  const Dictionary sent = event();
  EXPECT_EQ(sent.contains("mode"), GetParam().isFirst);
  if (GetParam().isFirst) {
    EXPECT_EQ(sent.at("mode"), Value("1"));
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, FirstUploadMode,
                         testing::Values(FirstUpload{false, 0, false}, FirstUpload{false, 1, true},
                                         FirstUpload{false, 2, false}, FirstUpload{true, 0, true},
                                         FirstUpload{true, 1, false}, FirstUpload{true, 2, false}));

TEST_F(AttemptTracking, DataTaskIsNeverAFirstUpload) {
  track(failure(), DataTask("a.jpg", "avatar", Data(), {}));
  track(AWSCallbackStatus::success(), DataTask("a.jpg", "avatar", Data(), {}));
  for (const Dictionary& each : platform.mediator.trackedEvents()) {
    EXPECT_FALSE(each.contains("mode"));
  }
}

// ---- Downloads

TEST_F(AWSTrackingTest, DownloadFailureSendsWhatIsGiven) {
  library.tracking.trackingDownloadFailure("a.jpg", 2, "text");
  EXPECT_EQ(event(), (Dictionary{{"status", "error"},
                                 {"type", "download"},
                                 {"name", "a.jpg"},
                                 {"code", "2"},
                                 {"message", "text"}}));
}

TEST_F(AWSTrackingTest, DownloadFailureLeavesOutNameAndCode) {
  library.tracking.trackingDownloadFailure(std::nullopt, std::nullopt, "text");
  EXPECT_EQ(event(), (Dictionary{{"status", "error"}, {"type", "download"}, {"message", "text"}}));
}

TEST_F(AWSTrackingTest, DownloadSuccessSendsNameAndDuration) {
  library.tracking.trackingDownloadSuccess("a.jpg", 0.25);
  EXPECT_EQ(
      event(),
      (Dictionary{{"status", "success"}, {"type", "download"}, {"name", "a.jpg"}, {"time", 0.25}}));
}

}  // namespace
}  // namespace qx
