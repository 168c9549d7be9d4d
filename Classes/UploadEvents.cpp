#include "Classes/UploadEvents.h"

#include <utility>

#include "platform/Networking.h"

namespace qx {
namespace {

/// The interval at which progress is told. The last bytes are always told.
constexpr double kSecondsBetweenProgress = 0.1;

/// Adds the keys that name the upload of an event.
Dictionary subject(UploadKind kind, const Task& task) {
  Dictionary event = {
      {"name", task.filename()}, {"scope", task.scope()}, {"kind", std::string(kindText(kind))}};
  const auto tag = task.extra().find(std::string(kTagExtra));
  if (tag != task.extra().end()) event["tag"] = tag->second.toString();
  return event;
}

void addError(Dictionary& event, const Error& error) {
  event["domain"] = error.domain;
  event["code"] = error.code;
  event["text"] = error.description;
}

void addFailure(Dictionary& event, const AWSCallbackStatus& status) {
  addError(event, uploaderError(status.code(), status.message()));
  if (status.backendStatus() != 0) event["backendStatus"] = std::int64_t{status.backendStatus()};
}

/// Remembers the bytes of one transfer that were told last.
struct ToldProgress {
  double time = 0;
  std::int64_t bytes = -1;
};

}  // namespace

std::string_view kindText(UploadKind kind) {
  return kind == UploadKind::direct ? "direct" : "background";
}

UploadEvents::UploadEvents(Dispatch& dispatch, Clock& clock)
    : clock_(clock),
      queue_(dispatch.makeSerialQueue("com.aws.events")),
      observers_(std::make_shared<const std::vector<Observer>>()) {}

void UploadEvents::observe(Observer observer) {
  MutexLock lock(lock_);
  auto observers = std::make_shared<std::vector<Observer>>(*observers_);
  observers->push_back(std::move(observer));
  observers_ = std::move(observers);
  observed_ = true;
}

void UploadEvents::tell(std::string_view name, Dictionary event) {
  event["event"] = std::string(name);
  event["time"] = clock_.now();
  std::shared_ptr<const std::vector<Observer>> observers;
  {
    MutexLock lock(lock_);
    observers = observers_;
  }
  enqueue([observers = std::move(observers), event = std::move(event)] {
    for (const Observer& observer : *observers) observer(event);
  });
}

void UploadEvents::enqueue(Work work) {
  {
    MutexLock lock(lock_);
    pending_.push_back(std::move(work));
    if (std::exchange(scheduled_, true)) return;
  }
  queue_->async([this] { runPending(); });
}

void UploadEvents::runPending() {
  while (true) {
    std::vector<Work> batch;
    {
      MutexLock lock(lock_);
      batch.swap(pending_);
      scheduled_ = !batch.empty();
    }
    if (batch.empty()) return;
    for (const Work& work : batch) work();
  }
}

UploadEvents::ProgressBlock UploadEvents::progressBlock(std::string_view name, Dictionary subject) {
  return [this, name, subject = std::move(subject),
          told = std::make_shared<ToldProgress>()](const TransferProgress& progress) {
    const double now = clock_.now();
    const bool last =
        progress.totalUnitCount > 0 && progress.completedUnitCount >= progress.totalUnitCount;
    // A clock that was set back must not keep the transfer from telling its progress.
    const bool early = now >= told->time && now - told->time < kSecondsBetweenProgress;
    if (progress.completedUnitCount == told->bytes || (early && !last)) return;
    *told = {now, progress.completedUnitCount};
    Dictionary event = subject;
    event["bytes"] = progress.completedUnitCount;
    event["total"] = progress.totalUnitCount;
    tell(name, std::move(event));
  };
}

void UploadEvents::accepted(UploadKind kind, const Task& task, std::size_t size, bool stored,
                            const std::optional<Error>& whyNotStored) {
  if (!observed()) return;
  Dictionary event = subject(kind, task);
  event["size"] = static_cast<std::int64_t>(size);
  event["stored"] = stored;
  if (whyNotStored) addError(event, *whyNotStored);
  tell("accepted", std::move(event));
}

void UploadEvents::queued(const Task& task) {
  if (observed()) tell("queued", subject(UploadKind::background, task));
}

void UploadEvents::started(UploadKind kind, const Task& task, std::int64_t attempt) {
  if (!observed()) return;
  Dictionary event = subject(kind, task);
  event["attempt"] = attempt;
  tell("started", std::move(event));
}

UploadEvents::ProgressBlock UploadEvents::sent(UploadKind kind, const std::shared_ptr<Task>& task) {
  if (!observed()) return nullptr;
  return progressBlock("sent", subject(kind, *task));
}

void UploadEvents::attemptFailed(UploadKind kind, const Task& task, const AWSCallbackStatus& status,
                                 const FailedAttempt& attempt) {
  if (!observed()) return;
  Dictionary event = subject(kind, task);
  addFailure(event, status);
  event["attempt"] = attempt.number;
  event["counted"] = attempt.counted;
  event["stored"] = attempt.stored;
  event["cancelled"] = attempt.cancelled;
  if (attempt.nextTry) event["nextTry"] = *attempt.nextTry;
  tell("attemptFailed", std::move(event));
}

void UploadEvents::uploaded(UploadKind kind, const Task& task,
                            const std::optional<std::string>& url, std::int64_t itemId) {
  if (!observed()) return;
  Dictionary event = subject(kind, task);
  if (url) event["url"] = *url;
  event["itemId"] = itemId;
  tell("uploaded", std::move(event));
}

void UploadEvents::givenUp(const Task& task, const AWSCallbackStatus& status,
                           std::int64_t attempts) {
  if (!observed()) return;
  Dictionary event = subject(UploadKind::background, task);
  addFailure(event, status);
  event["attempt"] = attempts;
  tell("givenUp", std::move(event));
}

void UploadEvents::cancelled(const Task& task) {
  if (observed()) tell("cancelled", subject(UploadKind::background, task));
}

void UploadEvents::dropped(const Task& task) {
  if (observed()) tell("dropped", subject(UploadKind::background, task));
}

void UploadEvents::dropFailed(const Task& task, const Error& error) {
  if (!observed()) return;
  Dictionary event = subject(UploadKind::background, task);
  addError(event, error);
  tell("dropFailed", std::move(event));
}

void UploadEvents::imageReported(const AWSParameterMap& extra, std::int64_t itemId,
                                 const std::string& url, const std::optional<Error>& error) {
  if (!observed()) return;
  Dictionary event = {{"itemId", itemId}, {"url", url}};
  const auto tag = extra.find(std::string(kTagExtra));
  if (tag != extra.end()) event["tag"] = tag->second.toString();
  if (error) addError(event, *error);
  tell(error ? "imageReportFailed" : "imageReported", std::move(event));
}

UploadEvents::ProgressBlock UploadEvents::received(const std::string& url) {
  if (!observed()) return nullptr;
  return progressBlock("received", {{"url", url}});
}

void UploadEvents::downloaded(const std::string& url, const std::string& path) {
  if (observed()) tell("downloaded", {{"url", url}, {"path", path}});
}

void UploadEvents::downloadFailed(const std::string& url, const Error& error, bool completed,
                                  int backendStatus) {
  if (!observed()) return;
  Dictionary event = {{"url", url}, {"completed", completed}};
  addError(event, error);
  if (backendStatus != 0) event["backendStatus"] = std::int64_t{backendStatus};
  tell("downloadFailed", std::move(event));
}

void UploadEvents::credentialsFetched(const std::vector<std::string>& scopes) {
  if (observed()) tell("credentialsFetched", {{"scopes", Array(scopes.begin(), scopes.end())}});
}

void UploadEvents::credentialsRefused(const std::optional<Error>& error, const std::string& text) {
  if (!observed()) return;
  Dictionary event;
  addError(event, {error ? error->domain : std::string(kUploaderErrorDomain),
                   error ? error->code : 0, text});
  if (error && error->domain == kNetworkingErrorDomain) event["backendStatus"] = error->code;
  tell("credentialsRefused", std::move(event));
}

void UploadEvents::storeUnavailable(const Error& error) {
  if (!observed()) return;
  Dictionary event;
  addError(event, error);
  tell("storeUnavailable", std::move(event));
}

}  // namespace qx
