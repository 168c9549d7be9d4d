#include "Classes/AWSConfigure.h"

#include <utility>

#include "Classes/ItemUpdateItemOriginalImageUrl.h"
#include "Classes/Log.h"
#include "Classes/StorageGetUploadConfigRequest.h"

namespace qx {
namespace {

constexpr std::string_view kLogSource = "QXAwsUploader/AWSConfigure";
constexpr double kMessageTimeoutSeconds = 30;
constexpr double kTransferTimeoutSeconds = 30;
constexpr int kTransferRetryCount = 1;

std::string fullDescription(const Error& error) {
  return error.domain + " " + std::to_string(error.code) + ": " + error.description;
}

/// The key under which the session's fetch has registered the transfer utility of a scope.
std::string utilityKey(const std::string& scope, const Session& session) {
  return scope + session.configUUID.value_or("");
}

const AWSBasicParameter* find(const AWSParameterMap& extra, const std::string& key) {
  const auto entry = extra.find(key);
  return entry == extra.end() ? nullptr : &entry->second;
}

std::optional<std::int64_t> intValue(const AWSParameterMap& extra, const std::string& key) {
  const AWSBasicParameter* value = find(extra, key);
  return value ? std::optional(value->toInt()) : std::nullopt;
}

std::optional<std::string> textValue(const AWSParameterMap& extra, const std::string& key) {
  const AWSBasicParameter* value = find(extra, key);
  return value ? std::optional(value->toString()) : std::nullopt;
}

/// Only the text "true" chooses the det message, not a number or "True".
bool wantsDetMessage(const AWSParameterMap& extra) {
  const AWSBasicParameter* value = find(extra, "OriginalImageUseDetUploadKey");
  const std::string* text = value ? value->asText() : nullptr;
  return text != nullptr && *text == "true";
}

template <typename Request>
std::shared_ptr<const APIRequest> originalImageMessage(std::string Request::*urlField,
                                                       std::int64_t itemId,
                                                       const std::string& imageUrl,
                                                       const AWSParameterMap& extra) {
  auto message = std::make_shared<Request>();
  message->itemId = itemId;
  (*message).*urlField = imageUrl;
  message->originalImageSha1 = textValue(extra, "OriginalImageSha1Key");
  message->originalImageHeight = intValue(extra, "OriginalImageHeightKey");
  message->originalImageWidth = intValue(extra, "OriginalImageWidthKey");
  message->originalImageFileSize = intValue(extra, "OriginalImageFileSizeKey");
  message->originalImageFileFormat = textValue(extra, "OriginalImageFileFormatKey");
  return message;
}

}  // namespace

AWSConfigure::AWSConfigure(const Platform& platform, const AWSTracking& tracking,
                           UploadEvents& events, IdleWatch& idle, RetryTimer& retryTimer,
                           SchedulerFactory makeScheduler)
    : platform_(platform),
      tracking_(tracking),
      events_(events),
      idle_(idle),
      retryTimer_(retryTimer),
      makeScheduler_(std::move(makeScheduler)),
      fetchQeue_(platform.dispatch.makeSerialQueue("com.aws.fetch")),
      getConfigQeue_(platform.dispatch.makeSerialQueue("com.aws.get.config")),
      changeConfigQeue_(platform.dispatch.makeSerialQueue("com.aws.change.config")),
      handOverQueue_(platform.dispatch.makeSerialQueue("com.aws.hand.over")) {}

void AWSConfigure::trackConfigError(const std::string& message) const {
  tracking_.action(std::nullopt, message, std::nullopt, AWSTracking::Status::error,
                   AWSTracking::ENVType::config, std::nullopt, nullptr);
}

void AWSConfigure::changeSession(const std::function<void(Session&)>& change) {
  session.update([&change](const std::shared_ptr<const Session>& current) {
    auto changed = std::make_shared<Session>(*current);
    change(*changed);
    return changed;
  });
}

void AWSConfigure::full(const ConfigParameters& p) {
  if (session.load()->configParameters == p) return;
  changeConfigQeue_->sync([this, &p] {
    // Another thread may have applied the same identity while this one waited for the queue.
    if (session.load()->configParameters == p) return;
    scheduler.store(makeScheduler_(p.userId));
    std::shared_ptr<QXMessageAPINetworkingManager> client;
    if (p.hostURL) {
      client = platform_.messageClients.make(
          *p.hostURL, {{"USER-ID", p.userId}, {"ACCESS-TOKEN", p.accessToken}}, std::nullopt, true);
    } else {
      log(platform_, kLogError, "host error", kLogSource, "full(configParameters:)", __LINE__);
    }
    // The session is changed after the scheduler, so that code that finds this identity in force
    // finds its scheduler in force, too.
    changeSession([&](Session& changed) {
      changed.configParameters = p;
      if (client) changed.networkingManager = client;
    });
    retryTimer_.fireIfNeed();
  });
}

void AWSConfigure::getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback) {
  getConfigQeue_->async(
      [this, scope = std::move(scope), skipCheckExpiration, callback = std::move(callback)] {
        answerConfigRequest(scope, skipCheckExpiration, callback);
      });
}

void AWSConfigure::answerConfigRequest(const std::string& scope, bool skipCheckExpiration,
                                       const ConfigCallback& callback) {
  const auto fail = [&callback](AWSErrorCode code, std::string message, int backendStatus = 0) {
    if (!callback) return;
    callback(std::nullopt, AWSCallbackStatus::failure(code, std::move(message), backendStatus));
  };

  const ConfigParameters identity = ConfigParameters::readFromHost(platform_.mediator);
  if (!identity.isComplete()) {
    fail(AWSErrorCode::missParamters, "[Error] miss userId or accessToken");
    return;
  }
  const std::shared_ptr<const Session> current = session.load();
  if (current->configParameters != identity) {
    full(identity);
  } else if (configured) {
    const auto entry = current->configMap.find(scope);
    if (entry == current->configMap.end()) {
      fail(AWSErrorCode::keyNotMatch, "[Error] not found config with key:" + scope);
      return;
    }
    const UploadTokenModel& model = entry->second;
    // There is no margin: credentials are used until the instant of their expiry.
    if (skipCheckExpiration || platform_.clock.now() < model.expiration.secondsSince1970) {
      if (callback) callback(model, AWSCallbackStatus::success());
      return;
    }
  }

  const FetchResult fetched = fetchServerConfig();
  if (!fetched.success) {
    const bool answered = fetched.error && fetched.error->domain == kNetworkingErrorDomain;
    fail(AWSErrorCode::serverError, fetched.message.value_or(""),
         answered ? static_cast<int>(fetched.error->code) : 0);
    return;
  }
  // This request is queued behind the requests that came meanwhile. Its credentials are used
  // whatever their expiry, because checking it again could fetch for ever.
  getConfig(scope, true, callback);
}

AWSConfigure::FetchResult AWSConfigure::fetchServerConfig() {
  const std::shared_ptr<Semaphore> answered = platform_.dispatch.makeSemaphore(0);
  // The fetch succeeds unless an answer says otherwise. Without a message client nothing is sent,
  // and the request looks at the session again.
  const auto result = std::make_shared<FetchResult>();
  fetchQeue_->async([this, answered, result] {
    configured = false;
    const std::shared_ptr<QXMessageAPINetworkingManager> client = session.load()->networkingManager;
    if (!client) {
      answered->signal();
      return;
    }
    client->request(std::make_shared<StorageGetUploadConfigRequest>(), std::nullopt,
                    kMessageTimeoutSeconds, nullptr,
                    [this, answered, result](const QXNetworkingResponse& response) {
                      *result = ended(applyFetchedConfig(response));
                      answered->signal();
                    });
  });
  answered->wait();
  return *result;
}

AWSConfigure::FetchResult AWSConfigure::ended(FetchResult result) {
  refusal_.store(result.success ? std::nullopt : result.message);
  if (!result.success) {
    events_.credentialsRefused(result.error, result.message.value_or(""));
  } else if (events_.observed()) {
    std::vector<std::string> scopes;
    for (const auto& [scope, model] : session.load()->configMap) scopes.push_back(scope);
    events_.credentialsFetched(scopes);
  }
  return result;
}

std::optional<std::string> AWSConfigure::refusal(const std::string& scope) const {
  if (auto refused = refusal_.load()) return refused;
  if (!configured || session.load()->configMap.contains(scope)) return std::nullopt;
  return "no credentials for the scope \"" + scope + "\"";
}

AWSConfigure::FetchResult AWSConfigure::applyFetchedConfig(const QXNetworkingResponse& response) {
  if (response.error) return {false, response.error->description, response.error};
  const auto* config = dynamic_cast<const StorageGetUploadConfigResponse*>(response.value.get());
  if (config == nullptr) return {false, "response error"};

  const std::shared_ptr<const Session> earlier = session.load();
  changeSession([&map = config->uploadTokenMap, uuid = platform_.uuid.random()](Session& changed) {
    changed.configUUID = uuid;
    changed.configMap = map;
  });
  // No code looks up the utilities of the earlier fetch any more. Running transfers keep their own.
  for (const auto& [scope, model] : earlier->configMap) {
    platform_.objectStore.removeS3TransferUtility(utilityKey(scope, *earlier));
  }
  for (const auto& [scope, model] : config->uploadTokenMap) generateAWSConfiguration(scope, model);
  configured = true;
  if (const auto current = scheduler.load()) current->taskQueue().start();
  return {true, std::nullopt};
}

void AWSConfigure::generateAWSConfiguration(const std::string& key, const UploadTokenModel& model) {
  ObjectStore& store = platform_.objectStore;
  std::optional<AWSServiceConfiguration> configuration = store.makeServiceConfiguration(
      AWSEndpoint::regionTypeFromRegionName(model.region), model.region, {store.globalEndpoint()},
      {model.accessKeyId, model.accessKeySecret, model.securityToken});
  if (!configuration) {
    trackConfigError("[Error] AWS-" + key + " config error");
    return;
  }
  configuration->timeoutIntervalForRequest = kTransferTimeoutSeconds;
  configuration->timeoutIntervalForResource = kTransferTimeoutSeconds;
  configuration->maxRetryCount = kTransferRetryCount;
  store.registerS3TransferUtility(*configuration, utilityKey(key, *session.load()));
}

std::shared_ptr<AWSS3TransferUtility> AWSConfigure::transferUtility(const std::string& scope) {
  return platform_.objectStore.S3TransferUtilityForKey(utilityKey(scope, *session.load()));
}

void AWSConfigure::retryFire() {
  const ConfigParameters identity = ConfigParameters::readFromHost(platform_.mediator);
  if (identity.isComplete()) {
    full(identity);
    return;
  }
  log(platform_, kLogError, "miss userId or accessToken", kLogSource, "retryFire()", __LINE__);
  trackConfigError("[Error] retry fire miss userId or accessToken");
}

void AWSConfigure::userDidChange() {
  retryFire();
}

void AWSConfigure::reportBackgroundUpload(const std::string& scope,
                                          const std::optional<std::string>& url,
                                          const AWSParameterMap& extra,
                                          const std::optional<Error>& error) {
  if (const auto callback = backgroundUploadCallback.load()) callback(scope, url, extra, error);
  if (const auto callback = backgroundUploadItemCallback.load()) callback(scope, url, extra, error);
}

void AWSConfigure::backgroundUploadItem(const std::optional<std::string>& imageUrl,
                                        const AWSParameterMap& extra) {
  const std::optional<std::int64_t> itemId = intValue(extra, "uuid");
  if (!itemId || *itemId < 1 || !imageUrl) return;

  const std::shared_ptr<const APIRequest> message =
      wantsDetMessage(extra)
          ? originalImageMessage(&ItemUpdateItemOriginalDetImageUrlRequest::originalDetImageUrl,
                                 *itemId, *imageUrl, extra)
          : originalImageMessage(&ItemUpdateItemOriginalImageUrlRequest::originalImageUrl, *itemId,
                                 *imageUrl, extra);
  const std::shared_ptr<QXMessageAPINetworkingManager> client = session.load()->networkingManager;
  if (!client) return;
  idle_.begin();
  client->request(
      message, std::nullopt, kMessageTimeoutSeconds, nullptr,
      [this, url = *imageUrl, id = *itemId, extra](const QXNetworkingResponse& response) {
        constexpr std::string_view kFunction = "backgroundUploadItem(imageUrl:extra:)";
        if (response.error) {
          log(platform_, kLogError,
              "Update original image info failure, error:" + fullDescription(*response.error),
              kLogSource, kFunction, __LINE__);
        } else {
          log(platform_, kLogNote,
              "Update original image info, Url:" + url + " itemId:" + std::to_string(id),
              kLogSource, kFunction, __LINE__);
        }
        events_.imageReported(extra, id, url, response.error);
        idle_.end();
      });
}

}  // namespace qx
