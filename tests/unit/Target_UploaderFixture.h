// A host that sends actions to the target: their dictionaries and their effects.
//
// Threads: everything runs on the test's own thread, in run().
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Classes/AWSUploader.h"
#include "Classes/Target_Uploader.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "unit/UploadFixture.h"

namespace qx {

inline constexpr const char* kUpdateUrl = "v3/item/update_item_original_image_url";

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

}  // namespace qx
