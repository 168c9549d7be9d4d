#include "Classes/Target_UploadQueue.h"

#include <cerrno>
#include <set>

#include "Classes/Target_Uploader.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const std::string kDirectory = "/documents/aws-0011/123456";

class TargetUploadQueueTest : public UploadFixture {
 protected:
  TargetUploadQueueTest() {
    Target_Uploader::registerWith(platform.mediator, library);
    Target_UploadQueue::registerWith(platform.mediator, library);
    library.configure.backgroundUploadCallback.store(
        [this](const std::string&, const std::optional<std::string>& url, const AWSParameterMap&,
               const std::optional<Error>& error) {
          ended.push_back(error ? error->description : url.value_or("no URL"));
        });
  }

  void uploader(const std::string& action, const Dictionary& parameters) {
    platform.mediator.performTarget("Target_Uploader", action, parameters);
  }
  void queue(const std::string& action, const Dictionary& parameters = {}) {
    platform.mediator.performTarget("Target_UploadQueue", action, parameters);
  }
  void setUp(bool resume = false) {
    uploader("Action_SetUp:", {{"needServerResize", false}, {"resumeStoredTasks", resume}});
    run();
  }
  void observe() {
    queue("Action_Observe:", {{"events", Value::callback<HostEvents>([this](Dictionary event) {
                                 EXPECT_EQ(platform.dispatch.currentQueueLabel(), "com.aws.events");
                                 events.push_back(std::move(event));
                               })}});
  }
  void background(const std::string& tag, const std::string& bytes = "bytes") {
    uploader("Action_BackgroundUpload:",
             {{"scope", "avatar"}, {"data", Data(bytes)}, {"suffix", "jpg"}, {"tag", tag}});
  }
  void direct(const std::string& tag) {
    uploader("Action_Upload:",
             {{"scope", "avatar"},
              {"data", Data("bytes")},
              {"suffix", "jpg"},
              {"tag", tag},
              {"complete", Value::callback<HostUploadComplete>(
                               [this](std::optional<std::string> url, std::int64_t,
                                      std::optional<Error> error) {
                                 ended.push_back(error ? error->description : url.value_or(""));
                               })}});
  }
  Array list() {
    Array found;
    int calls = 0;
    queue("Action_List:", {{"complete", Value::callback<HostTaskList>([&](Array tasks) {
                              ++calls;
                              found = std::move(tasks);
                            })}});
    run();
    EXPECT_EQ(calls, 1);
    return found;
  }
  /// The entries of the list by their tags.
  std::map<std::string, Dictionary> byTag() {
    std::map<std::string, Dictionary> entries;
    for (const Value& entry : list()) {
      entries[readText(*entry.asDictionary(), "tag").value_or("")] = *entry.asDictionary();
    }
    return entries;
  }
  std::string nameOf(const std::string& tag) { return readText(byTag().at(tag), "name").value(); }
  void steer(const std::string& action, std::initializer_list<std::string> tags) {
    Array names;
    for (const std::string& tag : tags) names.emplace_back(nameOf(tag));
    queue(action, {{"names", names}});
    run();
  }
  /// The events that name an upload with this tag, such as "accepted a" and "queued a".
  std::vector<std::string> told(const std::string& tag) {
    std::vector<std::string> names;
    for (const Dictionary& event : events) {
      if (readText(event, "tag") == tag) names.push_back(readText(event, "event").value());
    }
    return names;
  }
  Dictionary lastEvent(const std::string& name) {
    for (auto event = events.rbegin(); event != events.rend(); ++event) {
      if (readText(*event, "event") == name) return *event;
    }
    ADD_FAILURE() << "no event " << name;
    return {};
  }
  void storeFails() { platform.objectStore.failAll(Error{"ObjectStore", 3, "down"}); }
  void storeWorks() { platform.objectStore.failAll(std::nullopt); }
  void tick() {
    platform.clock.advance(60);
    run();
  }

  std::vector<Dictionary> events;
  std::vector<std::string> ended;
};

TEST_F(TargetUploadQueueTest, BackgroundUploadIsToldFromItsAcceptanceToItsArrival) {
  setUp();
  observe();
  platform.objectStore.reportProgress({{2, 5}});
  background("a", "12345");
  run();
  EXPECT_THAT(told("a"), ElementsAre("accepted", "queued", "started", "sent", "sent", "uploaded"));
  const Dictionary accepted = events.front();
  EXPECT_EQ(readText(accepted, "kind"), "background");
  EXPECT_EQ(readText(accepted, "scope"), "avatar");
  EXPECT_EQ(readInt(accepted, "size"), 5);
  EXPECT_EQ(readBool(accepted, "stored"), true);
  EXPECT_EQ(readDouble(accepted, "time"), platform.clock.now());
  EXPECT_EQ(readInt(lastEvent("started"), "attempt"), 1);
  EXPECT_EQ(readInt(lastEvent("sent"), "bytes"), 5);
  EXPECT_EQ(readInt(lastEvent("sent"), "total"), 5);
  EXPECT_EQ(readText(lastEvent("uploaded"), "url"),
            "https://cdn.test/u/7/" + *readText(accepted, "name"));
}

TEST_F(TargetUploadQueueTest, BytesAreToldTenTimesASecondAtMostAndTheLastOnesAlways) {
  setUp();
  observe();
  // All reports come at one moment of the clock: the first one is told, the others wait for their
  // time.
  platform.objectStore.reportProgress({{1, 9}, {2, 9}, {3, 9}, {9, 9}});
  background("a", "123456789");
  run();
  std::vector<std::int64_t> bytes;
  for (const Dictionary& event : events) {
    if (readText(event, "event") == "sent") bytes.push_back(*readInt(event, "bytes"));
  }
  EXPECT_THAT(bytes, ElementsAre(1, 9));
}

TEST_F(TargetUploadQueueTest, NobodyObservesSoNothingIsTold) {
  setUp();
  platform.objectStore.reportProgress({{2, 5}});
  background("a");
  run();
  EXPECT_THAT(platform.dispatch.history(), testing::Not(Contains("com.aws.events")));
}

TEST_F(TargetUploadQueueTest, FailedAttemptSaysWhetherItCountsAndWhenTheNextOneIs) {
  setUp();
  observe();
  storeFails();
  background("a");
  run();
  const Dictionary failed = lastEvent("attemptFailed");
  EXPECT_EQ(readInt(failed, "attempt"), 1);
  EXPECT_EQ(readText(failed, "domain"), "AWSUploaderError");
  EXPECT_EQ(readInt(failed, "code"), 3);
  EXPECT_EQ(readText(failed, "text"), "down");
  EXPECT_EQ(readBool(failed, "counted"), true);
  EXPECT_EQ(readBool(failed, "stored"), true);
  EXPECT_EQ(readBool(failed, "cancelled"), false);
  EXPECT_EQ(readDouble(failed, "nextTry"), platform.clock.now() + 60);
  EXPECT_FALSE(failed.contains("backendStatus"));
}

TEST_F(TargetUploadQueueTest, TenthFailureGivesTheUploadUp) {
  setUp();
  observe();
  storeFails();
  background("a");
  run();
  for (int i = 2; i <= 10; ++i) tick();
  EXPECT_EQ(readInt(lastEvent("attemptFailed"), "attempt"), 10);
  EXPECT_FALSE(lastEvent("attemptFailed").contains("nextTry"));
  EXPECT_EQ(readInt(lastEvent("givenUp"), "attempt"), 10);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, UploadThatCannotBeStoredSaysWhyAndIsGivenUpAfterItsAttempt) {
  setUp();
  observe();
  platform.files.failAll(MemoryFiles::Operation::write);
  storeFails();
  background("a");
  run();
  const Dictionary accepted = lastEvent("accepted");
  EXPECT_EQ(readBool(accepted, "stored"), false);
  EXPECT_EQ(readText(accepted, "domain"), "Files");
  EXPECT_EQ(readInt(accepted, "code"), EIO);
  EXPECT_THAT(*readText(accepted, "text"), testing::HasSubstr(kDirectory));
  EXPECT_THAT(told("a"), ElementsAre("accepted", "queued", "started", "attemptFailed", "givenUp"));
  EXPECT_EQ(readBool(lastEvent("attemptFailed"), "stored"), false);
}

TEST_F(TargetUploadQueueTest, RefusedCredentialsAreToldWithTheStatusOfTheBackend) {
  setUp();
  observe();
  platform.messageClients.fail(kGetUploadConfig, Error{"QXNetworking", 401, "wrong token"});
  background("a");
  run();
  EXPECT_EQ(readInt(lastEvent("credentialsRefused"), "backendStatus"), 401);
  EXPECT_EQ(readText(lastEvent("credentialsRefused"), "text"), "wrong token");
  EXPECT_EQ(readInt(lastEvent("attemptFailed"), "backendStatus"), 401);
  EXPECT_EQ(readText(byTag().at("a"), "why"), "credentials");
  EXPECT_EQ(readText(byTag().at("a"), "reason"), "waits for credentials: wrong token");
}

TEST_F(TargetUploadQueueTest, FetchedCredentialsAreToldByTheirScopes) {
  setUp();
  observe();
  background("a");
  run();
  EXPECT_EQ(lastEvent("credentialsFetched").at("scopes"), Value(Array{"avatar"}));
}

TEST_F(TargetUploadQueueTest, DirectUploadIsToldAndListed) {
  setUp();
  observe();
  platform.objectStore.hold();
  direct("d");
  run();
  const auto entry = byTag().at("d");
  EXPECT_EQ(readText(entry, "kind"), "direct");
  EXPECT_EQ(readText(entry, "state"), "running");
  EXPECT_EQ(readInt(entry, "size"), 5);
  platform.objectStore.release();
  run();
  EXPECT_THAT(told("d"), ElementsAre("accepted", "started", "sent", "uploaded"));
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, ServerRouteTellsItsBytes) {
  uploader("Action_SetUp:", {{"needServerResize", true}});
  run();
  observe();
  platform.uploadClients.reportProgress({0.5});
  uploader("Action_BackgroundUpload:",
           {{"scope", "avatar"}, {"data", Data("0123456789")}, {"suffix", "jpg"}, {"tag", "a"}});
  run();
  std::vector<std::int64_t> bytes;
  for (const Dictionary& event : events) {
    if (readText(event, "event") == "sent") bytes.push_back(*readInt(event, "bytes"));
  }
  EXPECT_THAT(bytes, ElementsAre(5, 10));
}

TEST_F(TargetUploadQueueTest, ListTellsWhatRunsWaitsAndIsStored) {
  setUp();
  library.configure.maxBackgroundConcurrentCount = 1;
  storeFails();
  background("failed");
  run();
  storeWorks();
  platform.clock.advance(5);
  platform.objectStore.hold();
  background("running");
  background("queued");
  run();
  const auto entries = byTag();
  EXPECT_EQ(entries.size(), 3U);
  EXPECT_EQ(readText(entries.at("running"), "state"), "running");
  EXPECT_EQ(readText(entries.at("queued"), "state"), "queued");
  EXPECT_EQ(readText(entries.at("queued"), "why"), "slot");
  EXPECT_EQ(readText(entries.at("failed"), "state"), "stored");
  EXPECT_EQ(readText(entries.at("failed"), "why"), "retry");
  EXPECT_EQ(readInt(entries.at("failed"), "attempts"), 1);
  EXPECT_EQ(readInt(entries.at("failed"), "size"), 5);
  EXPECT_EQ(readDouble(entries.at("failed"), "age"), 5);
  EXPECT_EQ(readBool(entries.at("failed"), "stored"), true);
}

TEST_F(TargetUploadQueueTest, PausedQueueStartsNothingAndResumeStartsIt) {
  setUp();
  queue("Action_Pause:");
  background("a");
  run();
  tick();
  EXPECT_THAT(platform.objectStore.uploads(), IsEmpty());
  EXPECT_EQ(readText(byTag().at("a"), "why"), "paused");
  queue("Action_Resume:");
  run();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, PauseLeavesRunningUploadsAlone) {
  setUp();
  platform.objectStore.hold();
  background("a");
  run();
  queue("Action_Pause:");
  run();
  EXPECT_THAT(ended, IsEmpty());
  platform.objectStore.release();
  run();
  EXPECT_EQ(ended.size(), 1U);
}

TEST_F(TargetUploadQueueTest, PauseThatCancelsEndsRunningUploadsUncountedAndResumeSendsThemAgain) {
  for (const bool resumeStored : {false, true}) {
    SCOPED_TRACE(resumeStored);
    setUp(resumeStored);
    platform.objectStore.hold();
    background("a");
    run();
    queue("Action_Pause:", {{"cancelRunning", true}});
    run();
    EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
    EXPECT_EQ(readInt(byTag().at("a"), "attempts"), 0);
    platform.objectStore.release();
    queue("Action_Resume:");
    run();
    EXPECT_EQ(ended.size(), 2U);
    EXPECT_THAT(list(), IsEmpty());
    ended.clear();
  }
}

TEST_F(TargetUploadQueueTest, ResumeSendsWhatThePauseHasEndedAlthoughOthersWait) {
  setUp();
  library.configure.maxBackgroundConcurrentCount = 1;
  platform.objectStore.hold();
  background("ended");
  background("waiting");
  run();
  queue("Action_Pause:", {{"cancelRunning", true}});
  run();
  queue("Action_Resume:");
  run();
  platform.objectStore.release();
  run();
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_EQ(platform.objectStore.uploads().size(), 3U) << "the ended one twice";
}

TEST_F(TargetUploadQueueTest, UploadBeforeAnyIdentityIsToldAsDropped) {
  observe();
  background("a");
  run();
  EXPECT_THAT(told("a"), ElementsAre("dropped"));
}

TEST_F(TargetUploadQueueTest, PauseThatCancelsKeepsAnUploadThatOnlyMemoryHolds) {
  setUp();
  platform.files.failAll(MemoryFiles::Operation::write);
  platform.objectStore.hold();
  background("a");
  run();
  queue("Action_Pause:", {{"cancelRunning", true}});
  run();
  EXPECT_THAT(ended, IsEmpty());
  platform.objectStore.release();
  run();
  EXPECT_EQ(ended.size(), 1U);
}

TEST_F(TargetUploadQueueTest, CancelEndsARunningUploadAtOnceWithOneUncountedFailure) {
  setUp();
  observe();
  platform.objectStore.hold();
  background("a");
  run();
  steer("Action_Cancel:", {"a"});
  EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
  EXPECT_EQ(platform.objectStore.held(), 0U) << "the transfer itself has ended";
  const Dictionary failed = lastEvent("attemptFailed");
  EXPECT_EQ(readBool(failed, "counted"), false);
  EXPECT_EQ(readBool(failed, "cancelled"), true);
  EXPECT_FALSE(failed.contains("nextTry"));
  const auto entry = byTag().at("a");
  EXPECT_EQ(readText(entry, "why"), "cancelled");
  EXPECT_EQ(readInt(entry, "attempts"), 0);
  platform.objectStore.release();
  for (int i = 0; i < 3; ++i) tick();
  EXPECT_EQ(ended.size(), 1U) << "no tick starts a cancelled upload";
}

TEST_F(TargetUploadQueueTest, CancelEndsAnUploadThatWaitsForCredentials) {
  setUp();
  platform.messageClients.hold(kGetUploadConfig);
  direct("d");
  // The fetch blocks its queue until the answer comes, so the cancel runs during the fetch.
  platform.dispatch.onIdle = [this] {
    platform.dispatch.onIdle = nullptr;
    for (const auto& executor : library.directUploads.all()) executor->cancel();
    platform.messageClients.release(kGetUploadConfig);
  };
  run();
  EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
  EXPECT_THAT(platform.objectStore.uploads(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, CancelledDirectUploadReportsOneFailureOnTheMainQueue) {
  setUp();
  platform.objectStore.hold();
  direct("d");
  run();
  steer("Action_Cancel:", {"d"});
  EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, CancelledUploadServerFormEndsToo) {
  uploader("Action_SetUp:", {{"needServerResize", true}});
  run();
  platform.uploadClients.hold();
  direct("d");
  run();
  steer("Action_Cancel:", {"d"});
  EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
  EXPECT_EQ(platform.uploadClients.held(), 0U);
}

TEST_F(TargetUploadQueueTest, CancelledWaitingUploadNeverStartsUntilItIsRetried) {
  setUp();
  observe();
  library.configure.maxBackgroundConcurrentCount = 1;
  platform.objectStore.hold();
  background("first");
  background("second");
  run();
  steer("Action_Cancel:", {"second"});
  EXPECT_THAT(told("second"), ElementsAre("accepted", "queued", "cancelled"));
  platform.objectStore.release();
  tick();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_EQ(readText(byTag().at("second"), "why"), "cancelled");
  steer("Action_Retry:", {"second"});
  EXPECT_EQ(platform.objectStore.uploads().size(), 2U);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, RetryGivesAllAttemptsBackAndDoesNotWaitForTheTick) {
  for (const bool resumeStored : {false, true}) {
    SCOPED_TRACE(resumeStored);
    setUp(resumeStored);
    storeFails();
    background("a");
    run();
    for (int i = 2; i <= 9; ++i) tick();
    ASSERT_EQ(readInt(byTag().at("a"), "attempts"), 9);
    steer("Action_Retry:", {"a"});
    EXPECT_EQ(readInt(byTag().at("a"), "attempts"), 1);
    storeWorks();
    steer("Action_Retry:", {"a"});
    EXPECT_THAT(list(), IsEmpty());
  }
}

TEST_F(TargetUploadQueueTest, RetryOfARunningUploadSendsItOnce) {
  setUp();
  platform.objectStore.hold();
  background("a");
  run();
  steer("Action_Retry:", {"a"});
  platform.objectStore.release();
  run();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
}

TEST_F(TargetUploadQueueTest, DropForgetsUploadsWithTheirBytes) {
  for (const bool resumeStored : {false, true}) {
    SCOPED_TRACE(resumeStored);
    setUp(resumeStored);
    events.clear();
    observe();
    library.configure.maxBackgroundConcurrentCount = 1;
    platform.objectStore.hold();
    background("running");
    background("queued");
    run();
    ended.clear();
    steer("Action_Drop:", {"running", "queued"});
    EXPECT_THAT(ended, ElementsAre("[Error] cancelled"));
    EXPECT_THAT(list(), IsEmpty());
    EXPECT_THAT(told("queued"), Contains("dropped"));
    EXPECT_THAT(told("running"), Contains("dropped"));
    EXPECT_THAT(platform.files.paths(), ElementsAre(kDirectory + "/logs.plist"));
    platform.objectStore.release();
    tick();
    EXPECT_THAT(list(), IsEmpty());
  }
}

TEST_F(TargetUploadQueueTest, ManyDropsWriteTheLogOnce) {
  setUp();
  queue("Action_Pause:");
  Array names;
  for (int i = 0; i < 50; ++i) background(std::to_string(i));
  for (const auto& [tag, entry] : byTag()) names.emplace_back(*readText(entry, "name"));
  const std::size_t before = platform.files.writeCount(kDirectory + "/logs.plist");
  queue("Action_Drop:", {{"names", names}});
  run();
  EXPECT_EQ(platform.files.writeCount(kDirectory + "/logs.plist"), before + 1);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, DropThatFailsSaysWhyAndKeepsTheUpload) {
  setUp();
  observe();
  queue("Action_Pause:");
  background("a");
  run();
  platform.files.failAll(MemoryFiles::Operation::remove);
  steer("Action_Drop:", {"a"});
  EXPECT_EQ(readInt(lastEvent("dropFailed"), "code"), EIO);
  EXPECT_EQ(byTag().count("a"), 1U);
}

TEST_F(TargetUploadQueueTest, WithoutSetUpTheListReadsTheUserOfTheHostAndDropKeepsTheOthers) {
  setUp(/*resume=*/true);
  platform.reachability.setReachable(false);
  background("a");
  background("b");
  run();
  // This library stands for another process of the same user, after the first one has ended.
  library.configure.scheduler.store(nullptr);
  library.taskQueue->reset();
  Library& later = keptLibrary(platform.seams());
  Target_Uploader::registerWith(platform.mediator, later);
  Target_UploadQueue::registerWith(platform.mediator, later);
  const auto before = platform.files.calls().size();
  EXPECT_EQ(byTag().size(), 2U);
  EXPECT_EQ(platform.files.calls().size(), before) << "a list changes nothing on disk";
  steer("Action_Drop:", {"a"});
  EXPECT_EQ(byTag().size(), 1U);
  EXPECT_EQ(byTag().count("b"), 1U);
  EXPECT_THAT(platform.objectStore.uploads(), IsEmpty());
}

TEST_F(TargetUploadQueueTest, DamagedLogIsToldWhenItIsListed) {
  observe();
  platform.files.put(kDirectory + "/logs.plist", "<plist");
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(*readText(lastEvent("storeUnavailable"), "text"), testing::HasSubstr("is damaged"));
}

TEST_F(TargetUploadQueueTest, EntryThatNamesAFileOutsideTheDirectoryIsListedAndDroppedAlone) {
  observe();
  platform.files.put("/documents/kept.jpg", "kept");
  const Value log = Dictionary{{"a.jpg", Dictionary{{"base", Dictionary{{"file_path", "kept.jpg"},
                                                                        {"module_key", "avatar"}}},
                                                    {"extra", Dictionary{{"tag", "a"}}}}}};
  platform.files.put(kDirectory + "/logs.plist",
                     std::string(platform.propertyLists.documentStart()) +
                         platform.propertyLists.element(log).value() +
                         std::string(platform.propertyLists.documentEnd()));
  const Dictionary entry = byTag().at("a");
  EXPECT_EQ(readText(entry, "why"), "stray");
  EXPECT_EQ(readText(entry, "reason"), "its entry names a file outside the user's directory");
  EXPECT_FALSE(entry.contains("size"));
  steer("Action_Drop:", {"a"});
  EXPECT_EQ(readText(lastEvent("dropped"), "name"), "a.jpg");
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_EQ(platform.files.text("/documents/kept.jpg"), "kept");
}

TEST_F(TargetUploadQueueTest, WhatAnotherProcessHasLockedIsToldAndUploadsRunFromMemory) {
  observe();
  platform.files.createDirectory(kDirectory);
  auto other = platform.files.lock(kDirectory);
  ASSERT_TRUE(other);
  setUp(/*resume=*/true);
  EXPECT_EQ(readInt(lastEvent("storeUnavailable"), "code"), EWOULDBLOCK);
  EXPECT_EQ(readText(lastEvent("storeUnavailable"), "text"),
            kDirectory + " is in use by another process");
  background("a");
  run();
  EXPECT_EQ(readBool(lastEvent("accepted"), "stored"), false);
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
  (*other).reset();
  background("b");
  run();
  EXPECT_EQ(readBool(lastEvent("accepted"), "stored"), true) << "the other one has ended";
}

TEST_F(TargetUploadQueueTest, WithoutTheSwitchNothingIsLocked) {
  setUp();
  EXPECT_TRUE(platform.files.lock(kDirectory));
}

TEST_F(TargetUploadQueueTest, WhenIdleWaitsForTheQueueForStoredUploadsAndForDirectOnes) {
  setUp();
  int idle = 0;
  const auto whenIdle = [&] {
    queue("Action_WhenIdle:", {{"complete", Value::callback<HostIdle>([&idle] { ++idle; })}});
    run();
  };
  whenIdle();
  EXPECT_EQ(idle, 1) << "nothing is under way";

  storeFails();
  background("a");
  run();
  whenIdle();
  EXPECT_EQ(idle, 1) << "one is stored for its next attempt";
  storeWorks();
  tick();
  EXPECT_EQ(idle, 2);

  platform.objectStore.hold();
  direct("d");
  run();
  whenIdle();
  EXPECT_EQ(idle, 2) << "a direct upload runs";
  platform.objectStore.release();
  run();
  EXPECT_EQ(idle, 3);
}

TEST_F(TargetUploadQueueTest, WhenIdleWaitsForAnImageReportAndForADownload) {
  setUp();
  observe();
  int idle = 0;
  platform.imageHeaders.add(Data("image"), {640, 480});
  platform.messageClients.answer("v3/item/update_item_original_image_url", Dictionary{});
  background("warm up");
  run();
  platform.messageClients.hold("v3/item/update_item_original_image_url");
  uploader("Action_BackgroundUploadImage:", {{"scope", "avatar"},
                                             {"data", Data("image")},
                                             {"itemId", "77"},
                                             {"suffix", "png"},
                                             {"tag", "image"}});
  run();
  EXPECT_THAT(told("image"), Contains("uploaded"));
  queue("Action_WhenIdle:", {{"complete", Value::callback<HostIdle>([&idle] { ++idle; })}});
  run();
  EXPECT_EQ(idle, 0);
  platform.messageClients.release("v3/item/update_item_original_image_url");
  run();
  EXPECT_EQ(idle, 1);
  EXPECT_EQ(readInt(lastEvent("imageReported"), "itemId"), 77);
  EXPECT_EQ(readText(lastEvent("imageReported"), "tag"), "image");

  platform.objectStore.hold();
  uploader("Action_Download:", {{"url", "https://cdn.test/u/7/a.jpg"}, {"scope", "avatar"}});
  run();
  queue("Action_WhenIdle:", {{"complete", Value::callback<HostIdle>([&idle] { ++idle; })}});
  run();
  EXPECT_EQ(idle, 1);
  platform.objectStore.release();
  run();
  EXPECT_EQ(idle, 2);
}

TEST_F(TargetUploadQueueTest, WhenIdleIsCalledOnceTheLastUploadIsCancelledOrDropped) {
  setUp();
  int idle = 0;
  queue("Action_Pause:");
  background("a");
  background("b");
  run();
  queue("Action_WhenIdle:", {{"complete", Value::callback<HostIdle>([&idle] { ++idle; })}});
  run();
  EXPECT_EQ(idle, 0);
  steer("Action_Cancel:", {"a"});
  EXPECT_EQ(idle, 0);
  steer("Action_Drop:", {"b"});
  EXPECT_EQ(idle, 1);
}

TEST_F(TargetUploadQueueTest, FailedImageReportIsTold) {
  setUp();
  observe();
  platform.imageHeaders.add(Data("image"), {640, 480});
  platform.messageClients.fail("v3/item/update_item_original_image_url",
                               Error{"QXNetworking", 503, "busy"});
  uploader("Action_BackgroundUploadImage:",
           {{"scope", "avatar"}, {"data", Data("image")}, {"itemId", "77"}, {"suffix", "png"}});
  run();
  EXPECT_EQ(readText(lastEvent("imageReportFailed"), "text"), "busy");
  EXPECT_EQ(readInt(lastEvent("imageReportFailed"), "code"), 503);
}

TEST_F(TargetUploadQueueTest, DownloadGoesWhereTheHostWantsItAndIsTold) {
  setUp();
  observe();
  platform.objectStore.put("photos", "u/7/a.jpg", Data("object"));
  platform.objectStore.reportProgress({{3, 6}, {6, 6}});
  std::optional<Url> location;
  uploader("Action_Download:", {{"url", "https://cdn.test/u/7/a.jpg"},
                                {"scope", "avatar"},
                                {"destination", "/elsewhere/b.jpg"},
                                {"complete", Value::callback<HostDownloadComplete>(
                                                 [&](std::optional<Url> at, std::optional<Error>) {
                                                   location = std::move(at);
                                                 })}});
  run();
  ASSERT_TRUE(location);
  EXPECT_EQ(location->decodedPath(), "/elsewhere/b.jpg");
  EXPECT_EQ(readText(lastEvent("downloaded"), "path"), "/elsewhere/b.jpg");
  EXPECT_EQ(readInt(lastEvent("received"), "bytes"), 6);
  EXPECT_EQ(readText(lastEvent("received"), "url"), "https://cdn.test/u/7/a.jpg");
}

TEST_F(TargetUploadQueueTest, DownloadThatEndsWithoutCompleteIsTold) {
  setUp();
  observe();
  uploader("Action_Download:",
           {{"url", "https://cdn.test/"},
            {"scope", "avatar"},
            {"complete", Value::callback<HostDownloadComplete>(
                             [](std::optional<Url>, std::optional<Error>) { ADD_FAILURE(); })}});
  run();
  EXPECT_EQ(readBool(lastEvent("downloadFailed"), "completed"), false);
  EXPECT_EQ(readText(lastEvent("downloadFailed"), "text"), "[Error] not found url");
  backendGives(recordWith("region", "no region"));
  uploader("Action_Download:", {{"url", "https://cdn.test/u/7/a.jpg"}, {"scope", "avatar"}});
  run();
  EXPECT_EQ(readText(lastEvent("downloadFailed"), "text"), "[Error] config s3 failed");
  EXPECT_EQ(readInt(lastEvent("downloadFailed"), "code"), 100);
}

TEST_F(TargetUploadQueueTest, MissingKeysAreLoggedAndUnknownActionsAreUnknown) {
  for (const auto& [action, message] :
       std::map<std::string, std::string>{{"Action_Observe:", "miss events"},
                                          {"Action_List:", "miss complete"},
                                          {"Action_Cancel:", "miss names"},
                                          {"Action_Retry:", "miss names"},
                                          {"Action_Drop:", "miss names"},
                                          {"Action_WhenIdle:", "miss complete"}}) {
    queue(action);
    run();
    ASSERT_FALSE(platform.logger.records().empty());
    EXPECT_EQ(platform.logger.records().back().message, message) << action;
  }
  EXPECT_FALSE(Target_UploadQueue(library).performAction("Action_Upload:", {}));
  EXPECT_THAT(Target_UploadQueue(library).mistakes("Action_Cancel:", {{"names", "a.jpg"}}),
              ElementsAre("\"Action_Cancel:\" wants \"names\" to be a list of texts."));
}

}  // namespace
}  // namespace qx
