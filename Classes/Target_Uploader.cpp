#include "Classes/Target_Uploader.h"

#include <array>
#include <memory>
#include <utility>

#include "Classes/AWSConfigure.h"
#include "Classes/AWSDownloader.h"
#include "Classes/AWSUploader.h"
#include "Classes/ActionMistakes.h"
#include "Classes/Log.h"
#include "Classes/PQSParamsHelper.h"
#include "Classes/Task.h"
#include "Classes/TaskExecutor.h"
#include "platform/Platform.h"

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

/// Logs that an action lacks a parameter.
void logMissing(std::string message, std::string_view function, int line) {
  log(kLogError, std::move(message), "QXAwsUploader/Target_Uploader", function, line);
}

void setOrRemove(TextMap& extra, const char* key, std::optional<std::string> text) {
  if (text) {
    extra.insert_or_assign(key, *std::move(text));
  } else {
    extra.erase(key);
  }
}

/// "tags" and "fields" come from the dictionary alone: what `extra` brought along goes.
void setTagsAndFields(TextMap& extra, const Dictionary& dictionary) {
  setOrRemove(extra, "tags", PQSParamsHelper::tagsString(dictionary));
  setOrRemove(extra, "fields", PQSParamsHelper::fieldsString(dictionary));
}

AWSParameterMap widened(const TextMap& extra) {
  return AWSParameterMap(extra.begin(), extra.end());
}

/// A length in pixels, truncated toward zero; fatal when it is no 64-bit integer.
std::string pixelText(double length) {
  return std::to_string(AWSBasicParameter(length).toInt());
}

}  // namespace

void Target_Uploader::registerWith(QXMediator& mediator) {
  mediator.registerTarget("Target_Uploader", [] { return std::make_unique<Target_Uploader>(); });
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
      ActionMistakes::inParameters(action, parameters, Platform::current().imageHeaders);
  const bool isBackgroundUpload =
      action == "Action_BackgroundUpload:" || action == "Action_BackgroundUploadImage:";
  if (!isBackgroundUpload) return found;
  AWSConfigure& configure = AWSConfigure::shared();
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

TextMap Target_Uploader::addPqsInfoToExtra(std::optional<TextMap> params,
                                           const Dictionary& dictionary) {
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
  AWSConfigure& configure = AWSConfigure::shared();
  configure.needServerResize = *needServerResize;
  // Before the identity is applied: its scheduler opens the storage.
  configure.resumeStoredTasks = readBool(parameters, "resumeStoredTasks").value_or(false);
  configure.retryFire();
  // One more registration with every call, on purpose: the host sets up once.
  Platform::current().notifications.addObserver(std::string(kUserChangedNotification),
                                                [] { AWSConfigure::shared().userDidChange(); });
  configure.backgroundUploadItemCallback.store(
      [](const std::string& /*scope*/, const std::optional<std::string>& url,
         const AWSParameterMap& extra, const std::optional<Error>& error) {
        if (!error) AWSConfigure::shared().backgroundUploadItem(url, extra);
      });
}

void Target_Uploader::Action_SetMaxBackgroundConcurrent(const Dictionary& parameters) {
  if (const auto count = readInt(parameters, "count")) {
    AWSConfigure::shared().maxBackgroundConcurrentCount = *count;
  }
}

void Target_Uploader::Action_RegisterBackground(const Dictionary& parameters) {
  auto callback = readCallback<HostBackgroundCallback>(parameters, "callback");
  if (!callback) return;
  AWSConfigure::shared().backgroundUploadCallback.store(
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
  auto task = std::make_shared<DataTask>(AWSUploader::generateFileName(*suffix), *scope, *data,
                                         widened(extra));
  AWSUploader::createExecutor(std::move(task), /*progress=*/nullptr, *complete)->execute();
}

void Target_Uploader::Action_BackgroundUpload(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_BackgroundUpload(_:)";
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("miss scope", function, __LINE__);
  const auto data = readData(parameters, "data");
  if (!data) return logMissing("miss data", function, __LINE__);
  const auto suffix = readText(parameters, "suffix");
  if (!suffix) return logMissing("miss suffix", function, __LINE__);

  const TextMap extra =
      addPqsInfoToExtra(readTextMap(parameters, "extra").value_or(TextMap{}), parameters);
  AWSUploader::backgroundUpload(*data, *suffix, widened(extra), *scope);
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
  const auto size = Platform::current().imageHeaders.size(*data);
  if (!size) return logMissing("miss image", function, __LINE__);

  TextMap extra;
  extra["uuid"] = *itemId;
  extra["OriginalImageWidthKey"] = pixelText(size->width);
  extra["OriginalImageHeightKey"] = pixelText(size->height);
  extra["OriginalImageFileSizeKey"] = std::to_string(data->size());
  extra["OriginalImageSha1Key"] = sha1(*data);
  extra["OriginalImageFileFormatKey"] = *suffix;
  extra["OriginalImageUseDetUploadKey"] = readText(parameters, "useDetUpload").value_or("false");
  if (const auto updatePQS = readBool(parameters, "updatePQS")) {
    extra["updatePQS"] = *updatePQS ? "1" : "0";
  }
  extra["itemId"] = *itemId;
  setTagsAndFields(extra, parameters);
  AWSUploader::backgroundUpload(*data, *suffix, widened(extra), *scope);
}

void Target_Uploader::Action_Download(const Dictionary& parameters) {
  constexpr std::string_view function = "Action_Download(_:)";
  const auto url = readText(parameters, "url");
  if (!url) return logMissing("missing url", function, __LINE__);
  const auto scope = readText(parameters, "scope");
  if (!scope) return logMissing("missing scope", function, __LINE__);
  AWSDownloader::download(
      *url, *scope, readCallback<HostDownloadProgress>(parameters, "progress").value_or(nullptr),
      readCallback<HostDownloadComplete>(parameters, "complete").value_or(nullptr));
}

}  // namespace qx
