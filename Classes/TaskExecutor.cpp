#include "Classes/TaskExecutor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>
#include <utility>

#include "Classes/Log.h"
#include "Classes/NumberText.h"
#include "platform/Hex.h"

namespace qx {
namespace {

/// The library's code for a platform error.
AWSErrorCode codeOf(const Error& error) {
  return errorCodeFromRawValue(error.code).value_or(AWSErrorCode::unknown);
}

AWSCallbackStatus failureOf(const Error& error) {
  return AWSCallbackStatus::failure(codeOf(error), error.description);
}

/// The progress of the payload of an upload.
TransferProgress partOf(std::size_t size, double fraction) {
  const auto total = static_cast<std::int64_t>(size);
  return {fraction >= 1 ? total : static_cast<std::int64_t>(static_cast<double>(size) * fraction),
          total};
}

AWSCallbackStatus cancelledStatus() {
  return AWSCallbackStatus::failure(AWSErrorCode::unknown, "[Error] cancelled");
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

/// The default headers of the HTTP client, with this library's user agent in place of the client's.
HTTPHeaders uploadHeaders(UploadClients& clients) {
  HTTPHeaders headers = clients.defaultHeaders();
  std::erase_if(headers,
                [](const auto& header) { return equalIgnoringCase(header.first, "User-Agent"); });
  headers.emplace_back("User-Agent", clients.QXNetworkingUserAgent());
  return headers;
}

/// Calls back exactly once: with the first answer of the host, or with nothing when the host drops
/// the question, as a host without such a service does. The attempt has to end in both cases.
class LongIdAnswer {
 public:
  explicit LongIdAnswer(std::function<LongIdCompletion> completion)
      : completion_(std::move(completion)) {}
  ~LongIdAnswer() { settle(std::nullopt); }
  LongIdAnswer(const LongIdAnswer&) = delete;
  LongIdAnswer& operator=(const LongIdAnswer&) = delete;

  void settle(std::optional<std::int64_t> id) {
    if (settled_.test_and_set()) return;
    // The member is emptied first, so that a host that keeps its question does not keep the
    // executor and the payload.
    const std::function<LongIdCompletion> completion = std::exchange(completion_, nullptr);
    completion(id);
  }

 private:
  std::atomic_flag settled_;
  std::function<LongIdCompletion> completion_;
};

}  // namespace

TaskExecutor::TaskExecutor(const Platform& platform, Credentials& credentials, UploadEvents& events,
                           UploadKind uploadKind, std::shared_ptr<Task> taskToUpload)
    : task(std::move(taskToUpload)),
      kind(uploadKind),
      platform_(platform),
      credentials_(credentials),
      events_(events) {}

bool TaskExecutor::enter(Stage next) {
  // Destroyed after the lock has been released, because the transfer may keep this executor alive.
  std::shared_ptr<Cancellable> ended;
  MutexLock lock(lock_);
  // The stages follow one another in order. An attempt that has reported goes on to no other stage.
  if (next <= stage_) return false;
  if (next > Stage::transfer) ended.swap(transfer_);
  stage_ = next;
  return true;
}

void TaskExecutor::keep(std::shared_ptr<Cancellable> transfer) {
  {
    MutexLock lock(lock_);
    if (stage_ == Stage::transfer) transfer_.swap(transfer);
  }
  // The attempt has ended meanwhile, so its transfer is cancelled here.
  if (transfer && cancelled_) transfer->cancel();
}

void TaskExecutor::cancel() {
  std::shared_ptr<Cancellable> transfer;
  {
    MutexLock lock(lock_);
    if (stage_ >= Stage::itemId) return;
    cancelled_ = true;
    // execute() has not been called yet, and will report.
    if (stage_ == Stage::waiting) return;
    stage_ = Stage::reported;
    transfer.swap(transfer_);
  }
  if (transfer) transfer->cancel();
  platform_.dispatch.mainQueue().async(
      [self = shared_from_this()] { self->deliver(std::nullopt, cancelledStatus(), 0); });
}

void TaskExecutor::logRefusedLink() const {
  const auto* const stored = dynamic_cast<const FileTask*>(task.get());
  if (stored == nullptr) return;
  const Result<Data> content = stored->read();
  if (content) return;
  qx::logRefusedLink(platform_, content.error(), "QXAwsUploader/TaskExecutor", "execute()",
                     __LINE__);
}

void TaskExecutor::execute() {
  if (cancelled_) return report(std::nullopt, cancelledStatus(), 0);
  const auto* const stored = dynamic_cast<const FileTask*>(task.get());
  events_.started(kind, *task, stored ? stored->uploadCount() + 1 : 1);
  std::optional<Data> data = task->data();
  if (!data) {
    logRefusedLink();
    report(
        std::nullopt,
        AWSCallbackStatus::failure(AWSErrorCode::missParamters, "[Error] not found file or data"),
        0);
    return;
  }
  if (!enter(Stage::credentials)) return;
  credentials_.getConfig(
      task->scope(), /*skipCheckExpiration=*/false,
      [self = shared_from_this(), data = std::move(*data)](
          const std::optional<UploadTokenModel>& model, const AWSCallbackStatus& status) {
        if (!status.succeeded()) {
          self->report(std::nullopt, status, 0);
          return;
        }
        self->takeRoute(data, model);
      });
}

void TaskExecutor::takeRoute(const Data& data, const std::optional<UploadTokenModel>& model) {
  if (credentials_.resizesOnServer()) {
    uploadToServer(data, model);
  } else {
    uploadToObjectStore(data, model);
  }
}

void TaskExecutor::uploadToObjectStore(const Data& data,
                                       const std::optional<UploadTokenModel>& model) {
  if (!enter(Stage::transfer)) return;
  const std::shared_ptr<AWSS3TransferUtility> utility = credentials_.transferUtility(task->scope());
  if (utility == nullptr || !model) {
    report(std::nullopt,
           AWSCallbackStatus::failure(AWSErrorCode::noConfigured, "[Error] not found config"), 0);
    return;
  }
  handOver([self = shared_from_this(), utility, data, token = *model] {
    self->sendToObjectStore(*utility, data, token);
  });
}

void TaskExecutor::handOver(Work send) {
  credentials_.handOverQueue().async([self = shared_from_this(), send = std::move(send)] {
    if (!self->cancelled_) send();
  });
}

void TaskExecutor::sendToObjectStore(AWSS3TransferUtility& utility, const Data& data,
                                     const UploadTokenModel& token) {
  const std::string objectKey = token.authorizedPath + task->filename();
  const double startTime = platform_.clock.now();
  const UploadEvents::ProgressBlock sent = events_.sent(kind, task);
  const AWSTask started = utility.uploadData(
      data, token.bucket, objectKey, /*contentType=*/"", {sent},
      [self = shared_from_this(), startTime, sent, size = data.size(),
       url = token.downloadUrlPrefix + "/" + objectKey](const std::optional<Error>& error) {
        if (!self->enter(error ? Stage::reported : Stage::itemId)) return;
        if (sent && !error) sent(partOf(size, 1));
        self->uploadTime = self->platform_.clock.now() - startTime;
        self->platform_.dispatch.mainQueue().async([self, url, error] {
          if (error) {
            // The report has the URL that the object would have had.
            self->deliver(url, failureOf(*error), 0);
          } else {
            self->resolveItemId(url);
          }
        });
      });
  if (started.error) {
    if (!enter(Stage::reported)) return;
    platform_.dispatch.mainQueue().async([self = shared_from_this(), error = *started.error] {
      self->deliver(std::nullopt, failureOf(error), 0);
    });
    return;
  }
  keep(started.transfer);
}

void TaskExecutor::uploadToServer(const Data& data, const std::optional<UploadTokenModel>& model) {
  if (!enter(Stage::transfer)) return;
  if (uploadWorker == nullptr || !model) {
    report(std::nullopt,
           AWSCallbackStatus::failure(AWSErrorCode::noConfigured, "[Error] config error"), 0);
    return;
  }
  const std::string name = model->authorizedPath + task->filename();
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) fatal("an upload by the server route needs a name with a suffix");
  // The server always stores a WebP that it has made of the image.
  const std::string serverPath = name.substr(0, dot) + ".webp";

  const Value address = platform_.mediator.perform("QXConfig_GetAwsUploaderServerAddress", {});
  QXNetworkingUploadRequest request;
  request.url = address.asText() ? *address.asText() : "";
  request.headers = uploadHeaders(platform_.uploadClients);
  request.multipartFormData = [data, serverPath, token = *model](MultipartFormData& form) {
    const auto text = [&form](std::string_view partName, std::string value) {
      form.append(Data(std::move(value)), std::string(partName));
    };
    text("image_size", "1024");
    text("format", "webp");
    text("quality", "90");
    text("path", serverPath);
    text("bucket", token.bucket);
    form.append(data, "img", "img");
    text("s3_key", token.accessKeyId);
    text("s3_secret", token.accessKeySecret);
    text("s3_session_token", token.securityToken);
    text("s3_region", token.region);
  };

  handOver([self = shared_from_this(), request = std::move(request), size = data.size(),
            url = model->downloadUrlPrefix + "/" + serverPath] {
    self->sendToServer(request, size, url);
  });
}

void TaskExecutor::sendToServer(const QXNetworkingUploadRequest& request, std::size_t size,
                                const std::string& url) {
  const double startTime = platform_.clock.now();
  const UploadEvents::ProgressBlock sent = events_.sent(kind, task);
  ProgressCallback progress;
  if (sent) progress = [sent, size](double fraction) { sent(partOf(size, fraction)); };
  keep(uploadWorker->upload(
      request, progress,
      [self = shared_from_this(), startTime, progress,
       url](const QXNetworkingUploadResponse& response) {
        if (response.error) {
          self->report(
              std::nullopt,
              AWSCallbackStatus::failure(AWSErrorCode::serverError, response.error->description),
              0);
          return;
        }
        // Only 200 is a success. Other statuses 2xx count as failures on purpose.
        if (response.httpURLResponse && response.httpURLResponse->statusCode != 200) {
          self->report(
              std::nullopt,
              AWSCallbackStatus::failure(AWSErrorCode::serverError,
                                         std::to_string(response.httpURLResponse->statusCode)),
              0);
          return;
        }
        if (!self->enter(Stage::itemId)) return;
        if (progress) progress(1);
        self->uploadTime = self->platform_.clock.now() - startTime;
        self->resolveItemId(url);
      }));
}

void TaskExecutor::resolveItemId(const std::string& url) {
  AWSParameterMap& extra = task->extra();
  const auto entry = extra.find("itemId");
  const std::string* text = entry == extra.end() ? nullptr : entry->second.asText();
  if (const auto itemId = text ? parseDecimal(*text) : std::nullopt) {
    extra.insert_or_assign("imageUrl", url);
    extra.insert_or_assign("itemId", *itemId);
    report(url, AWSCallbackStatus::success(), *itemId);
    return;
  }
  const auto answer = std::make_shared<LongIdAnswer>(
      [self = shared_from_this(), url](std::optional<std::int64_t> number) {
        const std::int64_t id = number ? *number : generataItemId(self->platform_);
        self->task->extra().insert_or_assign("itemId", id);
        self->task->extra().insert_or_assign("imageUrl", url);
        self->report(url, AWSCallbackStatus::success(), id);
        self->complete = nullptr;
      });
  platform_.mediator.perform(
      "Tracking_GetLongIdWithCompletion:",
      {Value::callback<LongIdCompletion>(
          [answer](std::optional<std::int64_t> number) { answer->settle(number); })});
}

void TaskExecutor::report(const std::optional<std::string>& url, const AWSCallbackStatus& status,
                          std::int64_t itemId) {
  if (enter(Stage::reported)) deliver(url, status, itemId);
}

void TaskExecutor::deliver(const std::optional<std::string>& url, const AWSCallbackStatus& status,
                           std::int64_t itemId) {
  const auto self = shared_from_this();
  // The fields are copied or taken first, because an observer may replace or clear them while it
  // runs.
  const Complete callback = complete;
  const Observers told = std::exchange(observers, {});
  if (told.freeSlot) told.freeSlot();
  if (told.record) told.record(self, url, status, itemId);
  if (callback) callback(self, url, status, itemId);
  if (told.follow) told.follow();
  if (told.over) told.over();
}

std::int64_t TaskExecutor::generataItemId(const Platform& platform) {
  const Value userId = platform.mediator.perform("Account_GetUserId", {});
  const std::string* user = userId.asText();
  const std::int64_t remainder = parseDecimal(user ? *user : "0").value_or(0) % 1000;
  const auto seconds = static_cast<std::int64_t>(platform.clock.now());
  const std::string text = std::to_string(seconds);
  if (text.size() < 4) return seconds;
  return parseDecimal(std::to_string(remainder) + text.substr(3)).value_or(0);
}

std::string sha1(Digests& digests, const Data& bytes) {
  return hex(digests.sha1(bytes.text()));
}

}  // namespace qx
