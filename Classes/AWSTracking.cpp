#include "Classes/AWSTracking.h"

#include <string_view>
#include <utility>
#include <vector>

#include "Classes/PQSParamsHelper.h"

namespace qx {
namespace {

/// The first image source whose items are not tagged in full.
constexpr std::int64_t kFirstUntaggedImageSource = 3;

const char* statusText(AWSTracking::Status status) {
  return status == AWSTracking::Status::success ? "success" : "error";
}

const char* typeText(AWSTracking::ENVType type) {
  switch (type) {
    case AWSTracking::ENVType::config:
      return "config";
    case AWSTracking::ENVType::upload:
      return "upload";
    case AWSTracking::ENVType::backgroundUpload:
      return "background_upload";
    case AWSTracking::ENVType::download:
      return "download";
  }
  fatal("no such event type");
}

const AWSBasicParameter* find(const AWSParameterMap& extra, const char* key) {
  const auto entry = extra.find(key);
  return entry == extra.end() ? nullptr : &entry->second;
}

const std::string* findText(const AWSParameterMap& extra, const char* key) {
  const AWSBasicParameter* value = find(extra, key);
  return value ? value->asText() : nullptr;
}

const std::int64_t* findInt(const AWSParameterMap& extra, const char* key) {
  const AWSBasicParameter* value = find(extra, key);
  return value ? value->asInt() : nullptr;
}

bool isTextOne(const AWSParameterMap& extra, const char* key) {
  const std::string* text = findText(extra, key);
  return text != nullptr && *text == "1";
}

/// Tags the item in full when it is described completely, or updates its tags when the host has
/// asked for that.
void tagItem(const Platform& platform, const AWSParameterMap& extra) {
  QXTrackingEvents& tracker = platform.trackingEvents;
  const std::int64_t* itemId = findInt(extra, "itemId");
  if (itemId == nullptr) return;

  const std::string* itemType = findText(extra, "itemType");
  const std::string* imageUrl = findText(extra, "imageUrl");
  const std::string* imageFrom = findText(extra, "imageFrom");
  const std::int64_t imageSource = imageFrom ? textToInt(*imageFrom) : kFirstUntaggedImageSource;
  if (itemType && imageUrl && imageSource < kFirstUntaggedImageSource) {
    if (isTextOne(extra, "disableToPQS")) return;
    tracker.tagItem(*itemType, *itemId, *imageUrl, PQSParamsHelper::tagsArray(platform.json, extra),
                    imageSource, PQSParamsHelper::fieldsDictionary(platform.json, extra));
    return;
  }

  if (!isTextOne(extra, "updatePQS")) return;
  const auto tags = PQSParamsHelper::tagsArray(platform.json, extra);
  const auto fields = PQSParamsHelper::fieldsDictionary(platform.json, extra);
  if (!tags && !fields) return;
  tracker.updateItem(/*itemType=*/std::nullopt, *itemId, tags, fields);
}

}  // namespace

void AWSTracking::send(Dictionary event) const {
  platform_.mediator.perform("Tracking_Event:parameters:", {"qx_aws", std::move(event)});
}

void AWSTracking::action(std::optional<std::int64_t> code,
                         const std::optional<std::string>& message, std::optional<bool> firstUpload,
                         Status status, ENVType type, std::optional<double> uploadTime,
                         const AWSParameterMap* extra) const {
  Dictionary event;
  if (code) event.emplace("code", std::to_string(*code));
  if (message) event.emplace("message", *message);
  if (firstUpload.value_or(false)) event.emplace("mode", "1");
  if (uploadTime) event.emplace("time", *uploadTime);
  event.emplace("status", statusText(status));
  event.emplace("type", typeText(type));
  send(std::move(event));
  if (extra) tagItem(platform_, *extra);
}

void AWSTracking::tracking(const AWSCallbackStatus& status, const Task& task, ENVType type,
                           std::optional<double> uploadTime, const AWSParameterMap* extra) const {
  const auto* fileTask = dynamic_cast<const FileTask*>(&task);
  // The counts differ on purpose. Both mean the first attempt: a failure has been counted when it
  // is tracked, and a success is never counted.
  if (status.succeeded()) {
    const bool firstUpload = fileTask != nullptr && fileTask->uploadCount() == 0;
    action(std::nullopt, std::nullopt, firstUpload, Status::success, type, uploadTime, extra);
  } else {
    const bool firstUpload = fileTask != nullptr && fileTask->uploadCount() == 1;
    action(static_cast<std::int64_t>(status.code()), status.message(), firstUpload, Status::error,
           type, uploadTime, /*extra=*/nullptr);
  }
}

void AWSTracking::trackingDownloadFailure(const std::optional<std::string>& filename,
                                          std::optional<std::int64_t> code,
                                          const std::string& message) const {
  Dictionary event;
  event.emplace("status", statusText(Status::error));
  event.emplace("type", typeText(ENVType::download));
  if (filename) event.emplace("name", *filename);
  if (code) event.emplace("code", std::to_string(*code));
  event.emplace("message", message);
  send(std::move(event));
}

void AWSTracking::trackingDownloadSuccess(const std::string& filename, double duration) const {
  Dictionary event;
  event.emplace("status", statusText(Status::success));
  event.emplace("type", typeText(ENVType::download));
  event.emplace("name", filename);
  event.emplace("time", duration);
  send(std::move(event));
}

}  // namespace qx
