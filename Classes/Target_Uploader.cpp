#include "Classes/Target_Uploader.h"

#include <array>
#include <memory>
#include <utility>

#include "Classes/ActionMistakes.h"
#include "Classes/Library.h"
#include "Classes/Log.h"
#include "Classes/PQSParamsHelper.h"
#include "Classes/Task.h"
#include "Classes/TaskExecutor.h"

namespace qx {
namespace {

using TextMap = std::map<std::string, std::string>;

struct Action {
  std::string_view selector;
  void (Target_Uploader::*perform)(const Dictionary&);
};

constexpr std::array<Action, 7> kActions = {{
    {"Action_SetUp:", &Target_Uploader::Action_SetUp},
    {"Action_SetMaxBackgroundConcurrent:", &Target_Uploader::Action_SetMaxBackgroundConcurrent},
    {"Action_RegisterBackground:", &Target_Uploader::Action_RegisterBackground},
    {"Action_Upload:", &Target_Uploader::Action_Upload},
    {"Action_BackgroundUpload:", &Target_Uploader::Action_BackgroundUpload},
    {"Action_BackgroundUploadImage:", &Target_Uploader::Action_BackgroundUploadImage},
    {"Action_Download:", &Target_Uploader::Action_Download},
}};

void setOrRemove(TextMap& extra, const char* key, std::optional<std::string> text) {
  if (text) {
    extra.insert_or_assign(key, *std::move(text));
  } else {
    extra.erase(key);
  }
}

/// The host's own mark of an upload, which its events contain.
void setTag(TextMap& extra, const Dictionary& dictionary) {
  if (auto tag = readText(dictionary, "tag")) extra[std::string(kTagExtra)] = *std::move(tag);
}

AWSParameterMap widened(const TextMap& extra) {
  return AWSParameterMap(extra.begin(), extra.end());
}

/// The text of a length in pixels, truncated toward zero. Fatal when the length is no 64-bit
/// integer.
std::string pixelText(double length) {
  return std::to_string(AWSBasicParameter(length).toInt());
}

}  // namespace

Target_Uploader::Target_Uploader() : library_(Library::shared()) {}

void Target_Uploader::registerWith(QXMediator& mediator) {
  mediator.registerTarget("Target_Uploader", [] { return std::make_unique<Target_Uploader>(); });
}

void Target_Uploader::registerWith(QXMediator& mediator, Library& library) {
  mediator.registerTarget("Target_Uploader",
                          [&library] { return std::make_unique<Target_Uploader>(library); });
}

bool Target_Uploader::performAction(std::string_view action, const Dictionary& parameters) {
  for (const Action& known : kActions) {
    if (known.selector == action) {
      (this->*known.perform)(parameters);
      return true;
    }
  }
  return false;
}

std::vector<std::string> Target_Uploader::mistakes(std::string_view action,
                                                   const Dictionary& parameters) {
  std::vector<std::string> found =
      ActionMistakes::inParameters(action, parameters, library_.platform.imageHeaders);
  const bool isBackgroundUpload =
      action == "Action_BackgroundUpload:" || action == "Action_BackgroundUploadImage:";
  if (!isBackgroundUpload) return found;
  AWSConfigure& configure = library_.configure;
  if (configure.scheduler.load() == nullptr) {
    found.push_back("\"" + std::string(action) +
                    "\" does nothing before \"Action_SetUp:\" has applied the user's identity.");
  }
  if (!configure.backgroundUploadCallback.load()) {
    found.push_back(
        "Nobody hears how background uploads end until "
        "\"Action_RegisterBackground:\" has been sent.");
  }
  return found;
}

void Target_Uploader::logMissing(std::string message, std::string_view function, int line) const {
  log(library_.platform, kLogError, std::move(message), "QXAwsUploader/Target_Uploader", function,
      line);
}

void Target_Uploader::setTagsAndFields(TextMap& extra, const Dictionary& dictionary) const {
  const Platform& platform = library_.platform;
  setOrRemove(extra, "tags", PQSParamsHelper::tagsString(platform.json, dictionary));
  setOrRemove(extra, "fields",
              PQSParamsHelper::fieldsString(platform.json, platform.trackingEvents, dictionary));
}

TextMap Target_Uploader::addPqsInfoToExtra(std::optional<TextMap> params,
                                           const Dictionary& dictionary) const {
  if (!params) return {};
  TextMap extra = *std::move(params);
  if (auto itemType = readText(dictionary, "itemType")) extra["itemType"] = *std::move(itemType);
  if (auto itemId = readText(dictionary, "itemId")) extra["itemId"] = *std::move(itemId);
  if (const auto imageFrom = readInt(dictionary, "imageFrom")) {
    extra["imageFrom"] = std::to_string(*imageFrom);
  }
  setTagsAndFields(extra, dictionary);
  return extra;
}

void Target_Uploader::Action_SetUp(const Dictionary& parameters) {
  const auto needServerResize = readBool(parameters, "needServerResize");
  if (!needServerResize) return logMissing("miss needServerResize", "Action_SetUp(_:)", __LINE__);
  AWSConfigure& configure = library_.configure;
  configure.needServerResize = *needServerResize;
  // The switch is set before the identity is applied, because the scheduler of the identity opens
  // the storage.
  configure.resumeStoredTasks = readBool(parameters, "resumeStoredTasks").value_or(false);
  configure.retryFire();
  // Each call registers once more, on purpose: a host sets up once.
  library_.platform.notifications.addObserver(std::string(kUserChangedNotification),
                                              [&configure] { configure.userDidChange(); });
  configure.backgroundUploadItemCallback.store(
      [&configure](const std::string& /*scope*/, const std::optional<std::string>& url,
                   const AWSParameterMap& extra, const std::optional<Error>& error) {
        if (!error) configure.backgroundUploadItem(url, extra);
      });
}

void Target_Uploader::Action_SetMaxBackgroundConcurrent(const Dictionary& parameters) {
  if (const auto count = readInt(parameters, "count")) {
    library_.configure.maxBackgroundConcurrentCount = *count;
  }
}

void Target_Uploader::Action_RegisterBackground(const Dictionary& parameters) {
  auto callback = readCallback<HostBackgroundCallback>(parameters, "callback");
  if (!callback) return;
  library_.configure.backgroundUploadCallback.store(
      [callback = *std::move(callback)](
          const std::string& scope, const std::optional<std::string>& url,
          const AWSParameterMap& extra, const std::optional<Error>& error) {
        TextMap texts;
        for (const auto& [key, value] : extra) texts.emplace(key, value.toString());
        callback(scope, url, std::move(texts), error);
      });
}

void Target_Uploader::Action_Upload(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_Upload(_:)";
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("miss scope", function, __LINE__);
  const auto complete = readCallback<HostUploadComplete>(parameters, "complete");
  if (!complete) return logMissing("miss complete", function, __LINE__);
  const auto data = readData(parameters, "data");
  if (!data) return logMissing("miss data", function, __LINE__);
  const auto suffix = readText(parameters, "suffix");
  if (!suffix) return logMissing("miss suffix", function, __LINE__);

  TextMap extra = addPqsInfoToExtra(TextMap{}, parameters);
  if (readBool(parameters, "disableToPQS").value_or(false)) extra["disableToPQS"] = "1";
  setTag(extra, parameters);
  auto task = std::make_shared<DataTask>(library_.uploader.generateFileName(*suffix), *scope, *data,
                                         widened(extra));
  library_.events.accepted(UploadKind::direct, *task, data->size(), /*stored=*/false,
                           /*whyNotStored=*/std::nullopt);
  library_.directUploads.start(
      library_.uploader.createExecutor(std::move(task), /*progress=*/nullptr, *complete));
}

void Target_Uploader::Action_BackgroundUpload(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_BackgroundUpload(_:)";
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("miss scope", function, __LINE__);
  const auto data = readData(parameters, "data");
  if (!data) return logMissing("miss data", function, __LINE__);
  const auto suffix = readText(parameters, "suffix");
  if (!suffix) return logMissing("miss suffix", function, __LINE__);

  TextMap extra =
      addPqsInfoToExtra(readTextMap(parameters, "extra").value_or(TextMap{}), parameters);
  setTag(extra, parameters);
  library_.uploader.backgroundUpload(*data, *suffix, widened(extra), *scope);
}

void Target_Uploader::Action_BackgroundUploadImage(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_BackgroundUploadImage(_:)";
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("miss scope", function, __LINE__);
  const auto data = readData(parameters, "data");
  if (!data) return logMissing("miss data", function, __LINE__);
  const auto itemId = readText(parameters, "itemId");
  if (!itemId) return logMissing("miss itemId", function, __LINE__);
  const auto suffix = readText(parameters, "suffix");
  if (!suffix) return logMissing("miss suffix", function, __LINE__);
  const auto size = library_.platform.imageHeaders.size(*data);
  if (!size) return logMissing("miss image", function, __LINE__);

  TextMap extra;
  extra["uuid"] = *itemId;
  extra["OriginalImageWidthKey"] = pixelText(size->width);
  extra["OriginalImageHeightKey"] = pixelText(size->height);
  extra["OriginalImageFileSizeKey"] = std::to_string(data->size());
  extra["OriginalImageSha1Key"] = sha1(library_.platform.digests, *data);
  extra["OriginalImageFileFormatKey"] = *suffix;
  extra["OriginalImageUseDetUploadKey"] = readText(parameters, "useDetUpload").value_or("false");
  if (const auto updatePQS = readBool(parameters, "updatePQS")) {
    extra["updatePQS"] = *updatePQS ? "1" : "0";
  }
  extra["itemId"] = *itemId;
  setTagsAndFields(extra, parameters);
  setTag(extra, parameters);
  library_.uploader.backgroundUpload(*data, *suffix, widened(extra), *scope);
}

void Target_Uploader::Action_Download(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_Download(_:)";
  const auto url = readText(parameters, "url");
  if (!url) return logMissing("missing url", function, __LINE__);
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("missing scope", function, __LINE__);
  library_.downloader.download(
      *url, *scope, readCallback<HostDownloadProgress>(parameters, "progress").value_or(nullptr),
      readCallback<HostDownloadComplete>(parameters, "complete").value_or(nullptr),
      readText(parameters, "destination"));
}

}  // namespace qx
