#include "Host.h"

#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Classes/Target_UploadQueue.h"
#include "Classes/Target_Uploader.h"
#include "platform/Url.h"

namespace qx::app {
namespace {

/// A target of the library that also tells the listener about unknown actions.
template <typename Target>
class ReportingTarget : public MediatorTarget {
 public:
  explicit ReportingTarget(HostListener& listener) : listener_(listener) {}
  bool performAction(std::string_view action, const Dictionary& parameters) override {
    const bool known = target_.performAction(action, parameters);
    if (!known) listener_.onUnknownAction(action);
    return known;
  }

 private:
  HostListener& listener_;
  Target target_;
};

template <typename Target>
void registerTarget(Mediator& mediator, std::string_view name, HostListener& listener) {
  mediator.registerTarget(std::string(name), [&listener] {
    return std::make_unique<ReportingTarget<Target>>(listener);
  });
}

/// A value in a form that JSON can hold. Nothing for bytes and host objects.
std::optional<Value> codable(const Value& value) {
  if (value.asData() || value.asHostObject()) return std::nullopt;
  if (const Date* date = value.asDate()) return Value(date->secondsSince1970);
  if (const Array* array = value.asArray()) {
    Array result;
    for (const Value& element : *array) {
      auto one = codable(element);
      if (!one) return std::nullopt;
      result.push_back(*std::move(one));
    }
    return Value(std::move(result));
  }
  if (const Dictionary* dictionary = value.asDictionary()) {
    Dictionary result;
    for (const auto& [key, element] : *dictionary) {
      auto one = codable(element);
      if (!one) return std::nullopt;
      result.emplace(key, *std::move(one));
    }
    return Value(std::move(result));
  }
  return value;
}

Value tagsValue(const std::optional<std::vector<std::string>>& tags) {
  if (!tags) return {};
  return Array(tags->begin(), tags->end());
}

Value fieldsValue(const std::optional<Dictionary>& fields) {
  return fields ? Value(*fields) : Value();
}

std::optional<std::string> absolutePath(const std::optional<std::string>& path) {
  std::error_code code;
  if (!path || path->empty()) return path;
  const auto absolute = std::filesystem::absolute(*path, code);
  return code ? *path : absolute.string();
}

LinuxSettings withServices(LinuxSettings settings, QXLogger& logger, QXTrackingEvents& tracking,
                           Console& console) {
  settings.logger = &logger;
  settings.trackingEvents = &tracking;
  settings.console = &console;
  return settings;
}

}  // namespace

LinuxSettings linuxSettings(const Settings& settings) {
  LinuxSettings result;
  result.documentsDirectory = absolutePath(settings.get("documents"));
  result.storeEndpoint = settings.get("store").value_or(result.storeEndpoint);
  // A person who waits at a slow line wants the file to arrive.
  result.resourceTimeoutCountsStandstillOnly = true;
  result.caFile = settings.get("ca_file");
  result.proxy = settings.get("proxy");
  result.noProxy = settings.get("no_proxy");
  for (const char* key : {"backend", "upload_server", "store"}) {
    const std::optional<Url> url = Url::parse(settings.get(key).value_or(""));
    if (url && !url->host().empty()) result.reachabilityHosts.emplace_back(url->host());
  }
  return result;
}

std::string faultOfPlatform(const Settings& settings) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kKeys = {
      {{"storeEndpoint", "store"}, {"caFile", "ca_file"}, {"proxy", "proxy"}}};
  for (const SettingFault& fault : LinuxPlatform::check(linuxSettings(settings))) {
    for (const auto& [member, key] : kKeys) {
      if (fault.setting != member) continue;
      return settings.entry(key).origin + ": " + std::string(key) + ": " + fault.reason;
    }
  }
  return {};
}

Host::Host(const Settings& settings, const std::string& token, HostListener& listener)
    : listener_(listener),
      platform_(withServices(linuxSettings(settings), *this, *this, *this)),
      reachability_(platform_.seams().reachability),
      seams_(platform_.seams().with(reachability_)) {
  const auto textOrNull = [&](std::string_view key) {
    const auto text = settings.get(key);
    return text ? Value(*text) : Value();
  };
  answers_.set("userId", textOrNull("user_id"));
  answers_.set("token", token.empty() ? Value() : Value(token));
  answers_.set("serverAddress", textOrNull("backend"));
  answers_.set("uploadServerAddress", textOrNull("upload_server"));
  answers_.set("production", settings.get("environment") == "production");
  answers_.set("longId", "none");
  Mediator& mediator = platform_.mediator();
  answers_.registerWith(mediator);
  mediator.answer("Tracking_Event:parameters:", [this](const std::vector<Value>& arguments) {
    const std::string* name = arguments.empty() ? nullptr : arguments[0].asText();
    const Dictionary* parameters = arguments.size() < 2 ? nullptr : arguments[1].asDictionary();
    listener_.onTracking(parameters ? *parameters : Dictionary(), name ? *name : std::string());
    return Value();
  });
  registerTarget<Target_Uploader>(mediator, kUploader, listener_);
  registerTarget<Target_UploadQueue>(mediator, kUploadQueue, listener_);
  Platform::install(seams_);
  perform(kUploadQueue, "Action_Observe:",
          {{"events", Value::callback<HostEvents>([this](const Dictionary& event) {
              post([this, event] { listener_.onEvent(event); });
            })}});
}

Host::~Host() {
  shutDown();
}

void Host::postUserChanged() {
  seams_.notifications.post(kUserChangedNotification);
}

void Host::perform(std::string_view target, const std::string& action,
                   const Dictionary& parameters) {
  seams_.mediator.performTarget(target, action, parameters);
}

void Host::setUp(bool serverResize, bool resumeStoredTasks) {
  perform(kUploader, "Action_SetUp:",
          {{"needServerResize", serverResize}, {"resumeStoredTasks", resumeStoredTasks}});
}

void Host::listStored(std::function<void(const std::vector<ListedTask>&)> complete) {
  perform(kUploadQueue, "Action_List:",
          {{"complete", Value::callback<HostTaskList>(
                            [this, complete = std::move(complete)](const Array& tasks) {
                              post([complete, stored = storedTasks(tasks)] { complete(stored); });
                            })}});
}

void Host::post(Work work) {
  seams_.dispatch.mainQueue().async(std::move(work));
}

std::unique_ptr<Timer> Host::every(double seconds, Work tick) {
  auto timer = seams_.dispatch.makeTimer(seams_.dispatch.mainQueue());
  timer->setEventHandler(std::move(tick));
  timer->scheduleNow(seconds, 0.05);
  timer->resume();
  return timer;
}

void Host::run() {
  platform_.runMainQueue();
}

void Host::stop() {
  platform_.stopMainQueue();
}

void Host::shutDown() {
  if (std::exchange(isShutDown_, true)) return;
  // The failures that follow are not failures of the uploads.
  perform(kUploadQueue, "Action_Pause:", {{"cancelRunning", true}});
  platform_.shutDown();
}

int Host::threshold() {
  return 0;
}

void Host::write(const LogRecord& record) {
  listener_.onLog(record);
}

void Host::printLine(std::string_view line) {
  listener_.onPrint(std::string(line));
}

void Host::tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
                   const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
                   const std::optional<Dictionary>& fields) {
  listener_.onTag("tagItem", {{"itemType", itemType},
                              {"itemId", itemId},
                              {"imageUrl", imageUrl},
                              {"tags", tagsValue(tags)},
                              {"imageSource", imageSource},
                              {"fields", fieldsValue(fields)}});
}

void Host::updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                      const std::optional<std::vector<std::string>>& tags,
                      const std::optional<Dictionary>& fields) {
  listener_.onTag("updateItem", {{"itemType", itemType ? Value(*itemType) : Value()},
                                 {"itemId", itemId},
                                 {"tags", tagsValue(tags)},
                                 {"fields", fieldsValue(fields)}});
}

std::optional<Dictionary> Host::anyCodable(const Dictionary& values) {
  const auto result = codable(values);
  return result ? std::optional(*result->asDictionary()) : std::nullopt;
}

}  // namespace qx::app
