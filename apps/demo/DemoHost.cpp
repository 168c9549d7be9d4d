#include "DemoHost.h"

#include <qxawsuploader/Target_Uploader.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <sstream>
#include <string_view>

namespace demo {
namespace {

using qx::Value;

qx::LinuxSettings settings(const Account& account, const std::string& documents, Logger* logger,
                           Tracker* tracker) {
  qx::LinuxSettings settings;
  settings.logger = logger;
  settings.trackingEvents = tracker;
  settings.documentsDirectory = documents;
  settings.storeEndpoint = account.store;
  settings.reachabilityHosts = {"127.0.0.1"};
  return settings;
}

qx::Dictionary itemTags(std::int64_t itemId, const std::optional<std::vector<std::string>>& tags) {
  qx::Dictionary event = {{"itemId", itemId}};
  if (tags) event.emplace("tags", qx::Array(tags->begin(), tags->end()));
  return event;
}

std::int64_t firstItemId() {
  using namespace std::chrono;
  return duration_cast<seconds>(system_clock::now().time_since_epoch()).count() * 1000;
}

}  // namespace

void Logger::write(const qx::LogRecord& record) {
  // The whole line is written at once, because several threads may log at the same time.
  std::ostringstream line;
  line << "[" << record.level << "] " << record.source << ":" << record.line << " "
       << record.function << ": " << record.message << "\n";
  std::cerr << line.str();
}

void Tracker::add(std::string name, qx::Dictionary parameters) {
  qx::MutexLock lock(mutex_);
  events_.emplace_back(std::move(name), std::move(parameters));
}

std::vector<Tracker::Event> Tracker::events() const {
  qx::MutexLock lock(mutex_);
  return events_;
}

void Tracker::tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
                      const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
                      const std::optional<qx::Dictionary>& /*fields*/) {
  qx::Dictionary event = itemTags(itemId, tags);
  event.emplace("itemType", itemType);
  event.emplace("imageUrl", imageUrl);
  event.emplace("imageSource", imageSource);
  add("tag item", std::move(event));
}

void Tracker::updateItem(const std::optional<std::string>& /*itemType*/, std::int64_t itemId,
                         const std::optional<std::vector<std::string>>& tags,
                         const std::optional<qx::Dictionary>& /*fields*/) {
  add("update item", itemTags(itemId, tags));
}

DemoHost::DemoHost(const Account& account, const std::string& documents, int logThreshold)
    : account_(account),
      logger_(logThreshold),
      nextItemId_(firstItemId()),
      platform_(settings(account, documents, &logger_, &tracker_)) {
  registerAnswers();
  qx::Target_Uploader::registerWith(platform_.mediator());
  qx::Platform::install(platform_.seams());
}

void DemoHost::send(std::string_view action, const qx::Dictionary& parameters) {
  platform_.mediator().performTarget("Target_Uploader", action, parameters);
}

void DemoHost::registerAnswers() {
  qx::Mediator& mediator = platform_.mediator();
  mediator.answer("Account_GetUserId", [this] { return Value(account_.userId); });
  mediator.answer("Account_GetAccessToken", [this] { return Value(account_.accessToken); });
  mediator.answer("QXConfig_getServerAddress", [this] { return Value(account_.backend); });
  mediator.answer("QXConfig_GetAwsUploaderServerAddress",
                  [this] { return Value(account_.uploadServer); });
  // Log records are written outside production only.
  mediator.answer("QXConfig_currentEnvironmentIsProduction", [] { return Value(false); });
  mediator.answer("Tracking_Event:parameters:", [this](const std::vector<Value>& arguments) {
    const std::string* name = arguments.empty() ? nullptr : arguments[0].asText();
    const qx::Dictionary* parameters = arguments.size() < 2 ? nullptr : arguments[1].asDictionary();
    if (name != nullptr && parameters != nullptr) tracker_.add(*name, *parameters);
    return Value();
  });
  mediator.answer("Tracking_GetLongIdWithCompletion:", [this](const std::vector<Value>& arguments) {
    using Completion = std::function<qx::LongIdCompletion>;
    const qx::HostObject* object = arguments.empty() ? nullptr : arguments[0].asHostObject();
    const auto* complete = object != nullptr ? object->as<Completion>() : nullptr;
    if (complete != nullptr) (*complete)(nextItemId_++);
    return Value();
  });
}

}  // namespace demo
