// The transfer utility: uploads and downloads of objects.
//
// A transfer is one or more signed requests. TransferRules.h decides after each answer; the
// transfer sends, stores the bytes and reports.
//
// Threads: as in ObjectStore.h. Completions and progress run on the context's queue, except the
// completion of a successful upload, which runs on the thread of the HTTP handlers. Payloads of
// more than 16 KiB that have to be hashed are hashed on the queue, smaller ones on the caller's
// thread.
#pragma once

#include <memory>
#include <string>

#include "platform/ObjectStore.h"
#include "s3/StoreAddress.h"
#include "s3/StoreContext.h"

namespace qx {

class TransferUtility : public AWSS3TransferUtility {
 public:
  TransferUtility(std::shared_ptr<StoreContext> context, StoreEndpoint endpoint,
                  AWSServiceConfiguration configuration);

  AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                     const std::string& contentType,
                     AWSS3TransferUtilityUploadExpression expression,
                     UploadCompletion completionHandler) override;
  AWSTask downloadToURL(const Url& location, const std::string& bucket, const std::string& key,
                        AWSS3TransferUtilityDownloadExpression expression,
                        DownloadCompletion completionHandler) override;

 private:
  const std::shared_ptr<StoreContext> context_;
  const StoreEndpoint endpoint_;
  const std::shared_ptr<StoreAccount> account_;
};

}  // namespace qx
