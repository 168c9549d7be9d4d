#include "s3/Transfer.h"

#include <cmath>
#include <utility>

#include "http/Headers.h"
#include "platform/Hex.h"

namespace qx {
namespace {

/// Hashing this many bytes costs less than passing them to another thread.
constexpr std::size_t kHashInPlace = 16 << 10;
/// The error records of stores are small.
constexpr std::size_t kBodyLimit = 1 << 20;
constexpr std::size_t kReadAtOnce = 256 << 10;

}  // namespace

Transfer::Transfer(std::shared_ptr<StoreContext> context, std::shared_ptr<StoreAccount> account,
                   TransferTarget target)
    : context_(std::move(context)),
      account_(std::move(account)),
      target_(std::move(target)),
      delivery_(std::make_shared<Delivery>(context_->seams.completions)),
      state_(beginningOf(target_, account_->configuration.regionName,
                         account_->configuration.maxRetryCount)) {}

void Transfer::setUpload(Data data, std::string contentType,
                         std::function<void(const TransferProgress&)> progress, Ending ending) {
  data_ = std::move(data);
  contentType_ = std::move(contentType);
  progress_ = std::move(progress);
  ending_ = std::move(ending);
}

void Transfer::setDownload(std::unique_ptr<PartFile> file,
                           std::function<void(const TransferProgress&)> progress, Ending ending) {
  file_ = std::move(file);
  progress_ = std::move(progress);
  ending_ = std::move(ending);
}

void Transfer::enter(Stage next) {
  const auto allowed = [this, next] {
    switch (next) {
      case Stage::made:
        return false;
      case Stage::hashing:
        return stage_ == Stage::made;
      case Stage::underWay:
        return stage_ == Stage::made || stage_ == Stage::hashing || stage_ == Stage::underWay;
      case Stage::ending:
        return stage_ == Stage::underWay || stage_ == Stage::made || stage_ == Stage::hashing;
      case Stage::ended:
        return stage_ == Stage::ending;
    }
    return false;
  };
  if (!allowed()) fatal("a transfer takes a step that it cannot take");
  stage_ = next;
}

std::optional<Error> Transfer::start() {
  const AWSBasicSessionCredentialsProvider& credentials = account_->configuration.credentials;
  const HTTPHeaders texts = {{"x-amz-security-token", credentials.sessionToken},
                             {"content-type", contentType_},
                             {"authorization", credentials.accessKey}};
  if (auto error = checkSendable(state_.address.url(), texts)) return error;
  if (target_.bucket.empty() || target_.encodedKey.empty()) {
    return Error{"ObjectStore", 0, "an object needs a bucket and a key"};
  }
  if (payloadIsSigned() && data_.size() > kHashInPlace) {
    enter(Stage::hashing);
    context_->seams.completions.async([self = shared_from_this()] { self->send(0); });
  } else {
    send(0);
  }
  return std::nullopt;
}

/// TLS protects the payload by itself, and hashing the payload would cost more than sending it.
std::string_view Transfer::payloadHash() {
  if (!payloadIsSigned()) return kUnsignedPayload;
  if (hash_.empty()) hash_ = hex(context_->seams.digests.sha256(data_.text()));
  return hash_;
}

/// The seconds since 1970 by the store's clock.
double Transfer::storeTime() const {
  return context_->seams.clock.now() + context_->clocks.offset(target_.endpoint);
}

HTTPHeaders Transfer::signedHeaders() {
  const AWSBasicSessionCredentialsProvider& credentials = account_->configuration.credentials;
  const std::string time = sigV4Time(static_cast<std::int64_t>(std::floor(storeTime())));
  const std::string hash(payloadHash());
  HTTPHeaders headers;
  headers.reserve(8);
  headers.emplace_back("host", state_.address.authority);
  headers.emplace_back("x-amz-content-sha256", hash);
  headers.emplace_back("x-amz-date", time);
  if (!credentials.sessionToken.empty()) {
    headers.emplace_back("x-amz-security-token", credentials.sessionToken);
  }
  if (!contentType_.empty()) headers.emplace_back("content-type", contentType_);
  SigV4Request toSign;
  toSign.method = target_.isDownload ? "GET" : "PUT";
  toSign.path = state_.address.path;
  toSign.headers = headers;
  toSign.payloadHash = hash;
  toSign.region = state_.region;
  headers.emplace_back(
      "authorization",
      account_->signer.authorization(toSign, time, credentials.accessKey, credentials.secretKey));
  signature_ = headers.back().second.substr(headers.back().second.rfind('=') + 1);
  return headers;
}

void Transfer::send(double delaySeconds) {
  if (isCancelled_) return end(Error{"Transport", kCancelled, "the transfer was cancelled"});
  HttpRequest request;
  request.method = target_.isDownload ? "GET" : "PUT";
  request.url = state_.address.url();
  request.headers = signedHeaders();
  if (!data_.empty()) request.body.push_back(data_);
  request.idleTimeoutSeconds = account_->configuration.timeoutIntervalForRequest;
  request.totalTimeoutSeconds = state_.secondsLeft;
  request.totalTimeoutIsForStandstill = target_.countsStandstillOnly;
  request.delaySeconds = delaySeconds;
  request.bodyLimit = kBodyLimit;
  if (file_) {
    if (!file_->restart()) return end(file_->error());
    // The attempts follow one another, so the file is written without a lock.
    request.sink = [self = shared_from_this()](std::string_view bytes) {
      return self->file_->write(bytes);
    };
  }
  if (progress_) {
    request.progress = [self = shared_from_this()](std::int64_t done, std::int64_t total) {
      self->delivery_->progress([self, done, total] { self->progress_({done, total}); });
    };
  }
  enter(Stage::underWay);
  const int number = ++requests_;
  const auto exchange = context_->seams.http.send(
      std::move(request),
      [self = shared_from_this()](const HttpAnswer& answer) { self->answered(answer); });
  // The answer, and with it the next request, may have come meanwhile.
  exchange_.update([number, &exchange](const NumberedExchange& current) {
    return current.number > number ? current : NumberedExchange{number, exchange};
  });
  // A cancel() that came before this line has found the previous request, or none.
  if (isCancelled_) exchange->cancel();
}

void Transfer::cancel() {
  isCancelled_ = true;
  if (const auto current = exchange_.load(); current.exchange) current.exchange->cancel();
}

void Transfer::answered(const HttpAnswer& answer) {
  const AWSBasicSessionCredentialsProvider& credentials = account_->configuration.credentials;
  const TransferTime time = {context_->seams.clock.now(),
                             context_->clocks.offset(target_.endpoint)};
  TransferDecision decision =
      decide(target_, state_, time, answer,
             {credentials.accessKey, credentials.secretKey, credentials.sessionToken, signature_});
  if (decision.learnedOffset) context_->clocks.learn(target_.endpoint, *decision.learnedOffset);
  switch (decision.step) {
    case TransferDecision::Step::again:
      state_ = std::move(decision.state);
      return send(decision.delaySeconds);
    case TransferDecision::Step::succeeded:
      md5_ = std::move(decision.md5);
      return end(std::nullopt);
    case TransferDecision::Step::failed:
      // A failure of the file is the cause of the failure of the request.
      return end(file_ && file_->error() ? file_->error() : std::move(decision.error));
  }
}

void Transfer::end(std::optional<Error> error) {
  enter(Stage::ending);
  // A successful upload is reported on this thread, which wakes one thread less for each object.
  if (!file_ && !error && !progress_) return report(std::nullopt);
  delivery_->finish([self = shared_from_this(), error = std::move(error)] { self->report(error); });
}

void Transfer::report(std::optional<Error> error) {
  if (file_) {
    if (!error) error = publish();
    file_.reset();
  }
  enter(Stage::ended);
  if (ending_) ending_(std::move(error));
}

/// Runs on the completion queue, because reading the whole file again must not delay other
/// transfers.
std::optional<Error> Transfer::publish() {
  if (md5_) {
    const Result<std::optional<std::string>> written = md5OfFile();
    if (!written) return written.error();
    if (*written && **written != *md5_) {
      return Error{"ObjectStore", 0, "the object came damaged: its MD5 is not the store's ETag"};
    }
  }
  return file_->publish();
}

/// The MD5 in lower-case hexadecimal, or nothing when the system allows no MD5.
Result<std::optional<std::string>> Transfer::md5OfFile() {
  const std::unique_ptr<Md5> md5 = context_->seams.digests.md5();
  if (!md5) return std::optional<std::string>();
  for (std::uint64_t offset = 0;;) {
    const Result<std::string> bytes = file_->read(offset, kReadAtOnce);
    if (!bytes) return bytes.error();
    if (bytes->empty()) return std::optional<std::string>(hex(md5->finish()));
    md5->update(*bytes);
    offset += bytes->size();
  }
}

}  // namespace qx
