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
                                                           ProgressCallback progress,
                                                           UploadEvents::ProgressBlock received) {
  return [&mainQueue, progress = std::move(progress),
          received = std::move(received)](const TransferProgress& transfer) {
    if (received) received(transfer);
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
  Request(UploadEvents& downloadEvents, IdleWatch& idleWatch)
      : events(downloadEvents), idle(idleWatch) {
    idle.begin();
  }
  /// The last user of the request has dropped it, so the download is over.
  ~Request() { idle.end(); }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  void fail(const Error& error, int backendStatus = 0) const {
    if (complete) complete(std::nullopt, error);
    events.downloadFailed(url, error, static_cast<bool>(complete), backendStatus);
  }

  UploadEvents& events;
  IdleWatch& idle;
  std::string url;
  std::string filename;
  std::string scope;
  ProgressCallback progress;
  Completion complete;
  /// The file to write. Nothing means the file in the cache directory.
  std::optional<std::string> destination;
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
    constexpr std::string_view kNoUtility = "[Error] config s3 failed";
    tracking_.trackingDownloadFailure(request->filename, std::nullopt, std::string(kNoUtility));
    events_.downloadFailed(request->url,
                           uploaderError(AWSErrorCode::noConfigured, std::string(kNoUtility)),
                           /*completed=*/false);
    return;
  }
  // The key depends on the file name alone, not on the folders of the URL.
  const std::string objectKey = model.authorizedPath + request->filename;
  const double startTime = platform_.clock.now();
  const Url destination =
      request->destination ? Url::file(*request->destination) : cachePath(request->filename);
  const auto refused = request->destination ? std::nullopt : refusedCacheLink(platform_.files);
  if (const auto& error = refused) {
    tracking_.trackingDownloadFailure(request->filename, error->code, error->description);
    request->fail(*error);
    return;
  }
  const AWSTask started = utility->downloadToURL(
      destination, model.bucket, objectKey,
      {.progressBlock = progressBlock(platform_.dispatch.mainQueue(), request->progress,
                                      events_.received(request->url))},
      [this, request, startTime](const std::optional<Url>& location,
                                 const std::optional<Error>& error) {
        if (error) {
          tracking_.trackingDownloadFailure(request->filename, error->code, error->description);
          request->fail(*error);
          return;
        }
        tracking_.trackingDownloadSuccess(request->filename, platform_.clock.now() - startTime);
        if (request->complete) request->complete(location, std::nullopt);
        request->events.downloaded(request->url, location ? location->decodedPath() : "");
      });
  if (started.error) {
    tracking_.trackingDownloadFailure(request->filename, started.error->code,
                                      started.error->description);
    request->fail(*started.error);
  }
}

void AWSDownloader::download(const std::string& url, const std::string& scope,
                             const ProgressCallback& progress, const Completion& complete,
                             const std::optional<std::string>& destination) {
  const std::optional<Url> parsed = Url::parse(url);
  // Any other name could lead out of the cache directory.
  if (!parsed || !isPlainPathComponent(parsed->lastPathComponent())) {
    constexpr std::string_view kNoUrl = "[Error] not found url";
    tracking_.trackingDownloadFailure(std::nullopt, std::nullopt, std::string(kNoUrl));
    events_.downloadFailed(url, uploaderError(AWSErrorCode::missParamters, std::string(kNoUrl)),
                           /*completed=*/false);
    return;
  }
  const auto request = std::make_shared<Request>(events_, idle_);
  request->url = url;
  request->filename = parsed->lastPathComponent();
  request->scope = scope;
  request->progress = progress;
  request->complete = complete;
  request->destination = destination;
  credentials_.getConfig(
      scope, /*skipCheckExpiration=*/false,
      [this, request](const std::optional<UploadTokenModel>& model,
                      const AWSCallbackStatus& status) {
        if (!status.succeeded()) {
          request->fail(uploaderError(status.code(), status.message()), status.backendStatus());
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
