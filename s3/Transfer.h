// One upload or download from its call to its completion.
//
//     made ──► [hashing] ──► underWay ──► ending ──► ended
//                             ▲    │
//                             └────┘ the rules say: again
//
// Threads: one thread at a time uses a transfer: the caller's until start() returns, the completion
// queue's while the payload is hashed and while the transfer ends, and that of the HTTP handlers
// otherwise.
// Ownership: a transfer keeps itself alive through the handlers of its requests.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "http/Delivery.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"
#include "s3/StoreContext.h"
#include "s3/TransferRules.h"

namespace qx {

class Transfer : public Cancellable, public std::enable_shared_from_this<Transfer> {
 public:
  using Ending = std::function<void(std::optional<Error>)>;

  Transfer(std::shared_ptr<StoreContext> context, std::shared_ptr<StoreAccount> account,
           TransferTarget target);

  void setUpload(Data data, std::string contentType,
                 std::function<void(const TransferProgress&)> progress, Ending ending);
  void setDownload(std::unique_ptr<PartFile> file,
                   std::function<void(const TransferProgress&)> progress, Ending ending);
  /// Starts the transfer. Yields the reason when it cannot start, else nothing.
  std::optional<Error> start();
  /// Ends the transfer with the error kCancelled. May be called from any thread.
  void cancel() override;

 private:
  enum class Stage { made, hashing, underWay, ending, ended };

  struct NumberedExchange {
    int number = 0;
    std::shared_ptr<Cancellable> exchange;
  };

  void enter(Stage next);
  bool payloadIsSigned() const { return state_.address.scheme == "http"; }
  std::string_view payloadHash();
  double storeTime() const;
  HTTPHeaders signedHeaders();
  void send(double delaySeconds);
  void answered(const HttpAnswer& answer);
  void end(std::optional<Error> error);
  void report(std::optional<Error> error);
  std::optional<Error> publish();
  Result<std::optional<std::string>> md5OfFile();

  // Constant once started.
  const std::shared_ptr<StoreContext> context_;
  const std::shared_ptr<StoreAccount> account_;
  const TransferTarget target_;
  const std::shared_ptr<Delivery> delivery_;
  Data data_;
  std::string contentType_;
  std::function<void(const TransferProgress&)> progress_;

  Stage stage_ = Stage::made;
  TransferState state_;
  Ending ending_;
  /// The file of a download.
  std::unique_ptr<PartFile> file_;
  /// The MD5 that the answer's ETag promises.
  std::optional<std::string> md5_;
  /// The SHA-256 of the payload in hexadecimal, once it has been computed.
  std::string hash_;
  /// The signature of the running request. The store may repeat it when it refuses the request.
  std::string signature_;

  /// The number of requests that were sent.
  int requests_ = 0;

  // These members belong to cancel(), which any thread may call.
  std::atomic<bool> isCancelled_ = false;
  /// The running request.
  Guarded<NumberedExchange> exchange_;
};

}  // namespace qx
