#include "Classes/AWSDownloader.h"

#include <cstdint>
#include <memory>
#include <utility>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Log.h"

namespace qx {
namespace {

/// Makes a progress block that passes the fraction to the host on the main queue.
std::function<void(const TransferProgress&)> progressBlock(DispatchQueue& mainQueue,
                                                           ProgressCallback progress) {
  return [&mainQueue, progress = std::move(progress)](const TransferProgress& transfer) {
    if (!progress) return;
    const double fraction = transfer.totalUnitCount >= 1
                                ? static_cast<double>(transfer.completedUnitCount) /
                                      static_cast<double>(transfer.totalUnitCount)
                                : 1.0;
    mainQueue.async([progress, fraction] { progress(fraction); });
  };
}

std::string cacheDirectory(Files& files) {
  return documentPath(files) + "/com.qxuploader.download.cache";
}

/// The error when a symbolic link takes the place of the cache directory, because what it points to
/// is not ours. Nothing otherwise.
std::optional<Error> refusedCacheLink(Files& files) {
  const std::string directory = cacheDirectory(files);
  if (files.kind(directory) != PathKind::link) return std::nullopt;
  return files.createDirectory(directory);
}

}  // namespace

struct AWSDownloader::Request {
  std::string filename;
  std::string scope;
  ProgressCallback progress;
  Completion complete;

  void fail(const Error& error) const {
    if (complete) complete(std::nullopt, error);
  }
};

Url AWSDownloader::cachePath(const std::string& filename) const {
  Files& files = platform_.files;
  const std::string directory = cacheDirectory(files);
  const PathKind kind = files.kind(directory);
  if (kind == PathKind::absent || kind == PathKind::link) {
    if (const auto error = files.createDirectory(directory)) {
      platform_.console.printLine(error->description);
      logRefusedLink(platform_, *error, "QXAwsUploader/AWSDownloader", "cachePath(filename:)",
                     __LINE__);
    }
  }
  return Url::file(directory + "/" + filename);
}

void AWSDownloader::fetch(const std::shared_ptr<const Request>& request,
                          const UploadTokenModel& model) {
  const std::shared_ptr<AWSS3TransferUtility> utility =
      credentials_.transferUtility(request->scope);
  if (utility == nullptr) {
    tracking_.trackingDownloadFailure(request->filename, std::nullopt, "[Error] config s3 failed");
    return;
  }
  // The key depends on the file name alone, not on the folders of the URL.
  const std::string objectKey = model.authorizedPath + request->filename;
  const double startTime = platform_.clock.now();
  const Url destination = cachePath(request->filename);
  if (const auto error = refusedCacheLink(platform_.files)) {
    tracking_.trackingDownloadFailure(request->filename, error->code, error->description);
    request->fail(*error);
    return;
  }
  const AWSTask started = utility->downloadToURL(
      destination, model.bucket, objectKey,
      {.progressBlock = progressBlock(platform_.dispatch.mainQueue(), request->progress)},
      [this, request, startTime](const std::optional<Url>& location,
                                 const std::optional<Error>& error) {
        if (error) {
          tracking_.trackingDownloadFailure(request->filename, error->code, error->description);
          request->fail(*error);
          return;
        }
        tracking_.trackingDownloadSuccess(request->filename, platform_.clock.now() - startTime);
        if (request->complete) request->complete(location, std::nullopt);
      });
  if (started.error) {
    tracking_.trackingDownloadFailure(request->filename, started.error->code,
                                      started.error->description);
    request->fail(*started.error);
  }
}

void AWSDownloader::download(const std::string& url, const std::string& scope,
                             const ProgressCallback& progress, const Completion& complete) {
  const std::optional<Url> parsed = Url::parse(url);
  // Any other name could lead out of the cache directory.
  if (!parsed || !isPlainPathComponent(parsed->lastPathComponent())) {
    tracking_.trackingDownloadFailure(std::nullopt, std::nullopt, "[Error] not found url");
    return;
  }
  const auto request = std::make_shared<const Request>(
      Request{parsed->lastPathComponent(), scope, progress, complete});
  credentials_.getConfig(
      scope, /*skipCheckExpiration=*/false,
      [this, request](const std::optional<UploadTokenModel>& model,
                      const AWSCallbackStatus& status) {
        if (!status.succeeded()) {
          request->fail(uploaderError(status.code(), status.message()));
          tracking_.trackingDownloadFailure(
              request->filename, static_cast<std::int64_t>(status.code()), status.message());
        } else if (!model) {
          // The two texts differ on purpose.
          request->fail(uploaderError(AWSErrorCode::noConfigured, "[Error] config model error"));
          tracking_.trackingDownloadFailure(request->filename, std::nullopt,
                                            "[Error] config model failed");
        } else {
          fetch(request, *model);
        }
      });
}

}  // namespace qx
