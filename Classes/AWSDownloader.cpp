#include "Classes/AWSDownloader.h"

#include <cstdint>
#include <memory>
#include <utility>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/AWSConfigure.h"
#include "Classes/AWSTracking.h"
#include "Classes/AWSUploader.h"
#include "platform/Platform.h"

namespace qx {
namespace {

/// What the host asked for, as far as it is known before the credentials are.
struct Request {
  std::string filename;
  std::string scope;
  ProgressCallback progress;
  AWSDownloader::Completion complete;

  void fail(const Error& error) const {
    if (complete) complete(std::nullopt, error);
  }
};

/// A progress block that hands the fraction to the host on the main queue.
std::function<void(const TransferProgress&)> progressBlock(ProgressCallback progress) {
  return [progress = std::move(progress)](const TransferProgress& transfer) {
    if (!progress) return;
    const double fraction = transfer.totalUnitCount >= 1
                                ? static_cast<double>(transfer.completedUnitCount) /
                                      static_cast<double>(transfer.totalUnitCount)
                                : 1.0;
    Platform::current().dispatch.mainQueue().async([progress, fraction] { progress(fraction); });
  };
}

void fetch(const std::shared_ptr<const Request>& request, const UploadTokenModel& model) {
  const Platform& platform = Platform::current();
  const std::string utilityKey =
      request->scope + AWSConfigure::shared().configUUID.load().value_or("");
  const std::shared_ptr<AWSS3TransferUtility> utility =
      platform.objectStore.S3TransferUtilityForKey(utilityKey);
  if (utility == nullptr) {
    AWSTracking::trackingDownloadFailure(request->filename, std::nullopt,
                                         "[Error] config s3 failed");
    return;
  }
  // From the file name alone: the folders of the URL are not part of the key.
  const std::string objectKey = model.authorizedPath + request->filename;
  const double startTime = platform.clock.now();
  const AWSTask started = utility->downloadToURL(
      AWSDownloader::cachePath(request->filename), model.bucket, objectKey,
      {.progressBlock = progressBlock(request->progress)},
      [request, startTime](const std::optional<Url>& location, const std::optional<Error>& error) {
        if (error) {
          AWSTracking::trackingDownloadFailure(request->filename, error->code, error->description);
          request->fail(*error);
          return;
        }
        AWSTracking::trackingDownloadSuccess(request->filename,
                                             Platform::current().clock.now() - startTime);
        if (request->complete) request->complete(location, std::nullopt);
      });
  if (started.error) {
    AWSTracking::trackingDownloadFailure(request->filename, started.error->code,
                                         started.error->description);
    request->fail(*started.error);
  }
}

}  // namespace

Url AWSDownloader::cachePath(const std::string& filename) {
  const std::string directory = documentPath() + "/com.qxuploader.download.cache";
  Files& files = Platform::current().files;
  if (files.kind(directory) == PathKind::absent) {
    if (const auto error = files.createDirectory(directory)) {
      Platform::current().console.printLine(error->description);
    }
  }
  return Url::file(directory + "/" + filename);
}

void AWSDownloader::download(const std::string& url, const std::string& scope,
                             const ProgressCallback& progress, const Completion& complete) {
  const std::optional<Url> parsed = Url::parse(url);
  // A name that is no plain file name could lead out of the cache directory.
  if (!parsed || !isPlainPathComponent(parsed->lastPathComponent())) {
    AWSTracking::trackingDownloadFailure(std::nullopt, std::nullopt, "[Error] not found url");
    return;
  }
  const auto request = std::make_shared<const Request>(
      Request{parsed->lastPathComponent(), scope, progress, complete});
  AWSConfigure::shared().getConfig(
      scope, /*skipCheckExpiration=*/false,
      [request](const std::optional<UploadTokenModel>& model, const AWSCallbackStatus& status) {
        if (!status.succeeded()) {
          request->fail(uploaderError(status.code(), status.message()));
          AWSTracking::trackingDownloadFailure(
              request->filename, static_cast<std::int64_t>(status.code()), status.message());
        } else if (!model) {
          // The two texts differ on purpose.
          request->fail(uploaderError(AWSErrorCode::noConfigured, "[Error] config model error"));
          AWSTracking::trackingDownloadFailure(request->filename, std::nullopt,
                                               "[Error] config model failed");
        } else {
          fetch(request, *model);
        }
      });
}

}  // namespace qx
