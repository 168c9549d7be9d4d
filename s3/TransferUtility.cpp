#include "s3/TransferUtility.h"

#include <utility>

#include "http/UriEncoding.h"
#include "s3/Transfer.h"

namespace qx {

namespace {

AWSTask started(const std::shared_ptr<Transfer>& transfer) {
  if (auto error = transfer->start()) return {.error = std::move(error)};
  return {.transfer = transfer};
}

}  // namespace

TransferUtility::TransferUtility(std::shared_ptr<StoreContext> context, StoreEndpoint endpoint,
                                 AWSServiceConfiguration configuration)
    : context_(std::move(context)),
      endpoint_(std::move(endpoint)),
      account_(std::make_shared<StoreAccount>(std::move(configuration), context_->seams.digests)) {}

AWSTask TransferUtility::uploadData(Data data, const std::string& bucket, const std::string& key,
                                    const std::string& contentType,
                                    AWSS3TransferUtilityUploadExpression expression,
                                    UploadCompletion completionHandler) {
  const auto transfer =
      std::make_shared<Transfer>(context_, account_,
                                 TransferTarget{endpoint_, bucket, percentEncodePath(key), false,
                                                account_->configuration.timeoutIntervalForResource,
                                                context_->countsStandstillOnly});
  transfer->setUpload(std::move(data), contentType, std::move(expression.progressBlock),
                      [done = std::move(completionHandler)](const std::optional<Error>& error) {
                        if (done) done(error);
                      });
  return started(transfer);
}

AWSTask TransferUtility::downloadToURL(const Url& location, const std::string& bucket,
                                       const std::string& key,
                                       AWSS3TransferUtilityDownloadExpression expression,
                                       DownloadCompletion completionHandler) {
  if (location.scheme() != "file" || location.authority() != "" || location.path().empty()) {
    return {Error{"ObjectStore", 0, "a download needs a file URL"}};
  }
  auto file = context_->seams.files.create(location.decodedPath());
  if (!file) return {file.error()};
  const auto transfer =
      std::make_shared<Transfer>(context_, account_,
                                 TransferTarget{endpoint_, bucket, percentEncodePath(key), true,
                                                account_->configuration.timeoutIntervalForResource,
                                                context_->countsStandstillOnly});
  transfer->setDownload(
      std::move(*file), std::move(expression.progressBlock),
      [location, done = std::move(completionHandler)](const std::optional<Error>& error) {
        if (!done) return;
        if (error) {
          done(std::nullopt, error);
        } else {
          done(location, std::nullopt);
        }
      });
  return started(transfer);
}

}  // namespace qx
