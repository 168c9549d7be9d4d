#include "Classes/AWSUploader.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Classes/NumberText.h"

namespace qx {
namespace {

constexpr double kRequestTimeoutSeconds = 30;
constexpr std::uint32_t kRandomParts = 10000;

}  // namespace

const UploadCompletion NilComplete = [](const std::optional<std::string>&, std::int64_t,
                                        const std::optional<Error>&) {};
const UploadProgress NilProgress = [](const TransferProgress&) {};

std::shared_ptr<TaskExecutor> AWSUploader::makeExecutor(std::shared_ptr<Task> task,
                                                        UploadKind kind) {
  auto executor =
      std::make_shared<TaskExecutor>(platform_, configure_, events_, kind, std::move(task));
  executor->uploadWorker = platform_.uploadClients.make(/*headers=*/{}, kRequestTimeoutSeconds);
  return executor;
}

std::shared_ptr<TaskExecutor> AWSUploader::createExecutor(std::shared_ptr<Task> task,
                                                          const UploadProgress& /*progress*/,
                                                          UploadCompletion complete) {
  auto executor = makeExecutor(std::move(task), UploadKind::direct);
  executor->complete = [&tracking = tracking_, &events = events_, complete = std::move(complete)](
                           const std::shared_ptr<TaskExecutor>& reporter,
                           const std::optional<std::string>& url, const AWSCallbackStatus& status,
                           std::int64_t itemId) {
    tracking.tracking(status, *reporter->task, AWSTracking::ENVType::upload, reporter->uploadTime,
                      &reporter->task->extra());
    if (status.succeeded()) {
      events.uploaded(UploadKind::direct, *reporter->task, url, itemId);
    } else {
      events.attemptFailed(UploadKind::direct, *reporter->task, status,
                           {.cancelled = reporter->wasCancelled()});
    }
    if (!complete) return;
    if (status.succeeded()) {
      complete(url, itemId, std::nullopt);
    } else {
      complete(std::nullopt, 0, uploaderError(status.code(), status.message()));
    }
  };
  return executor;
}

void AWSUploader::backgroundUpload(const Data& data, const std::string& suffix,
                                   const AWSParameterMap& extra, const std::string& scope) {
  auto task = std::make_shared<DataTask>(generateFileName(suffix), scope, data, extra);
  const std::shared_ptr<TaskScheduler> scheduler = configure_.scheduler.load();
  if (scheduler == nullptr) {
    events_.dropped(*task);
    return;
  }
  scheduler->add(makeExecutor(std::move(task)));
}

std::string AWSUploader::generateFileName(std::string_view suffix) {
  std::string name = timeText(platform_.clock.now());
  name += std::to_string(platform_.random.next() % kRandomParts);
  // The count is taken and increased in one step, so that no two names of this process have the
  // same count.
  const std::int64_t count = generateFileCount.fetch_add(1);
  if (count == std::numeric_limits<std::int64_t>::max()) fatal("generateFileCount overflows");
  name += std::to_string(count);
  std::ranges::replace(name, '.', '-');
  return name + "." + std::string(suffix);
}

}  // namespace qx
