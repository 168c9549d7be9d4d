#include "s3/TransferUtility.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "http/Delivery.h"
#include "http/UriEncoding.h"
#include "platforms/shared/PartFile.h"
#include "s3/StoreError.h"

namespace qx {
namespace {

constexpr int kMaxRedirects = 3;
constexpr double kLargestClockOffsetSeconds = 7 * 24 * 3600.0;
constexpr double kFirstBackoffSeconds = 0.1;
constexpr double kLongestBackoffSeconds = 2;
/// Hashing this much costs less than handing it to another thread.
constexpr std::size_t kHashInPlace = 16 << 10;
/// The store's error records are small.
constexpr std::size_t kBodyLimit = 1 << 20;

bool isRedirect(int status) {
  return status == 301 || status == 302 || status == 307 || status == 308;
}

bool isPassing(int status) {
  return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

/// The object's MD5 as the store gives it, in lower-case hex, or nothing. An ETag is the MD5 of the
/// bytes unless the object came in parts (then it has a "-"), was encrypted with a key that is not
/// the store's own, or lies in a directory bucket ("--x-s3"), says the S3 API reference on ETags.
std::optional<std::string> md5Of(const HttpAnswer& answer, std::string_view bucket) {
  std::string_view tag = answer.header("etag").value_or(std::string_view());
  if (tag.size() >= 2 && tag.front() == '"' && tag.back() == '"') {
    tag = tag.substr(1, tag.size() - 2);
  }
  const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  if (tag.size() != 32 || !std::ranges::all_of(tag, isDigit)) return std::nullopt;
  const auto encryption = answer.header("x-amz-server-side-encryption");
  if ((encryption && encryption->starts_with("aws:kms")) || bucket.ends_with("--x-s3") ||
      answer.header("x-amz-server-side-encryption-customer-algorithm")) {
    return std::nullopt;
  }
  return std::string(tag);
}

/// One upload or download from its call to its completion. It keeps itself alive through the
/// handlers of the request under way; only one thread at a time is busy with it.
class Transfer : public std::enable_shared_from_this<Transfer> {
 public:
  using End = std::function<void(std::optional<Error>)>;

  Transfer(std::shared_ptr<StoreContext> context, StoreEndpoint endpoint,
           std::shared_ptr<const AWSServiceConfiguration> configuration, const char* method,
           const std::string& bucket, const std::string& key)
      : context_(std::move(context)),
        endpoint_(std::move(endpoint)),
        configuration_(std::move(configuration)),
        method_(method),
        bucket_(bucket),
        encodedKey_(percentEncodePath(key)),
        delivery_(std::make_shared<Delivery>(context_->completions)),
        address_(addressOf(endpoint_, bucket_, encodedKey_)),
        region_(configuration_->regionName),
        attemptsLeft_(configuration_->maxRetryCount),
        secondsLeft_(configuration_->timeoutIntervalForResource) {}

  void setUpload(Data data, std::string contentType, AWSS3TransferUtility::UploadCompletion done) {
    data_ = std::move(data);
    contentType_ = std::move(contentType);
    end_ = [done = std::move(done)](const std::optional<Error>& error) {
      if (done) done(error);
    };
  }

  void setDownload(PartFile file, const Url& location,
                   std::function<void(const TransferProgress&)> progress,
                   AWSS3TransferUtility::DownloadCompletion done) {
    file_.emplace(std::move(file));
    progress_ = std::move(progress);
    end_ = [this, location, done = std::move(done)](std::optional<Error> error) {
      if (!error) error = publish();
      file_.reset();
      if (!done) return;
      if (error) {
        done(std::nullopt, error);
      } else {
        done(location, std::nullopt);
      }
    };
  }

  /// Why it cannot even start, or nothing, and then it is under way.
  std::optional<Error> start() {
    const HTTPHeaders texts = {{"x-amz-security-token", configuration_->credentials.sessionToken},
                               {"content-type", contentType_},
                               {"authorization", configuration_->credentials.accessKey}};
    if (auto error = checkSendable(address_.url(), texts)) return error;
    if (bucket_.empty() || encodedKey_.empty()) {
      return Error{"ObjectStore", 0, "an object needs a bucket and a key"};
    }
    if (payloadIsSigned() && data_.size() > kHashInPlace) {
      context_->completions.async([self = shared_from_this()] { self->send(0); });
    } else {
      send(0);
    }
    return std::nullopt;
  }

 private:
  /// TLS protects the payload by itself, and hashing it would cost more than sending it.
  bool payloadIsSigned() const { return address_.scheme == "http"; }

  std::string_view payloadHash() {
    if (!payloadIsSigned()) return kUnsignedPayload;
    if (hash_.empty()) hash_ = hex(sha256(data_.text()));
    return hash_;
  }

  void send(double delaySeconds) {
    HttpRequest request;
    request.method = method_;
    request.url = address_.url();
    request.headers = signedHeaders();
    if (!data_.empty()) request.body.push_back(data_);
    request.idleTimeoutSeconds = configuration_->timeoutIntervalForRequest;
    request.totalTimeoutSeconds = secondsLeft_;
    request.totalTimeoutIsForStandstill = context_->resourceTimeoutCountsStandstillOnly;
    request.delaySeconds = delaySeconds;
    request.bodyLimit = kBodyLimit;
    // The file's bytes come one attempt after the other, so it may be written without a lock.
    if (file_) {
      if (!file_->restart()) return finish(file_->error());
      request.sink = [self = shared_from_this()](std::string_view bytes) {
        return self->file_->write(bytes);
      };
      if (progress_) {
        request.progress = [self = shared_from_this()](std::int64_t done, std::int64_t total) {
          self->delivery_->progress([self, done, total] { self->progress_({done, total}); });
        };
      }
    }
    context_->engine.send(
        std::move(request),
        [self = shared_from_this()](const HttpAnswer& answer) { self->answered(answer); });
  }

  /// Seconds since 1970 by the store's clock.
  double storeTime() const { return context_->clock.now() + context_->clocks.offset(endpoint_); }

  HTTPHeaders signedHeaders() {
    const AWSBasicSessionCredentialsProvider& credentials = configuration_->credentials;
    const double now = storeTime();
    const std::string time = sigV4Time(static_cast<std::int64_t>(std::floor(now)));
    const std::string hash(payloadHash());
    HTTPHeaders headers;
    headers.reserve(8);
    headers.emplace_back("host", address_.authority);
    headers.emplace_back("x-amz-content-sha256", hash);
    headers.emplace_back("x-amz-date", time);
    if (!credentials.sessionToken.empty()) {
      headers.emplace_back("x-amz-security-token", credentials.sessionToken);
    }
    if (!contentType_.empty()) headers.emplace_back("content-type", contentType_);
    SigV4Request toSign;
    toSign.method = method_;
    toSign.path = address_.path;
    toSign.headers = headers;
    toSign.payloadHash = hash;
    toSign.region = region_;
    headers.emplace_back(
        "authorization",
        context_->signer.authorization(toSign, time, credentials.accessKey, credentials.secretKey));
    signature_ = headers.back().second.substr(headers.back().second.rfind('=') + 1);
    return headers;
  }

  // From here on: the engine's thread.

  void answered(const HttpAnswer& answer) {
    takeTime(answer);
    if (answer.error) {
      const bool curable = answer.failure == HttpFailure::connection ||
                           (answer.failure == HttpFailure::timeout && !answer.begun);
      if (curable && again(nextBackoff())) return;
      return finish(file_ && file_->error() ? file_->error() : answer.error);
    }
    // 206 holds a part of an object, and the store promises nothing with any other 2xx.
    if (answer.status == 200) return succeeded(answer);
    if (isRedirect(answer.status) && redirected(answer)) return;
    if (isPassing(answer.status) && again(retryDelay(answer))) return;
    if (clockCorrected(answer)) return;
    const auto& credentials = configuration_->credentials;
    finish(storeError(answer, {credentials.accessKey, credentials.secretKey,
                               credentials.sessionToken, signature_}));
  }

  void takeTime(const HttpAnswer& answer) {
    const bool moved = answer.standstillSeconds < answer.elapsedSeconds;
    if (context_->resourceTimeoutCountsStandstillOnly && moved) {
      secondsLeft_ = configuration_->timeoutIntervalForResource - answer.standstillSeconds;
    } else {
      secondsLeft_ -= answer.elapsedSeconds;
    }
  }

  void succeeded(const HttpAnswer& answer) {
    if (file_ && !answer.framed) {
      return finish(Error{"ObjectStore", 0,
                          "the store's answer does not say for certain where the object ends"});
    }
    if (file_) md5_ = md5Of(answer, bucket_);
    finish(std::nullopt);
  }

  /// On the completion queue: reading the whole file again must hold up nobody else's transfer.
  std::optional<Error> publish() {
    if (md5_) {
      const Result<std::optional<std::string>> written = file_->md5();
      if (!written) return written.error();
      if (*written && **written != *md5_) {
        return Error{"ObjectStore", 0, "the object came damaged: its MD5 is not the store's ETag"};
      }
    }
    return file_->publish();
  }

  /// Another attempt after `delaySeconds`, unless the attempts or the time are used up.
  bool again(double delaySeconds) {
    if (attemptsLeft_ <= 0 || delaySeconds >= secondsLeft_) return false;
    --attemptsLeft_;
    secondsLeft_ -= delaySeconds;
    send(delaySeconds);
    return true;
  }

  double nextBackoff() {
    backoff_ =
        backoff_ == 0 ? kFirstBackoffSeconds : std::min(2 * backoff_, kLongestBackoffSeconds);
    return backoff_;
  }

  double retryDelay(const HttpAnswer& answer) {
    const auto text = answer.header("retry-after");
    if (!text) return nextBackoff();
    int seconds = 0;
    const char* end = text->data() + text->size();
    const auto read = std::from_chars(text->data(), end, seconds);
    if (read.ec == std::errc() && read.ptr == end && seconds >= 0) return seconds;
    if (const auto date = parseHttpDate(*text)) {
      return std::max(0.0, *date - storeTime());
    }
    return nextBackoff();
  }

  bool redirected(const HttpAnswer& answer) {
    if (redirects_ >= kMaxRedirects || secondsLeft_ <= 0) return false;
    std::string target(answer.header("location").value_or(std::string_view()));
    if (target.empty()) {
      // The store's own way of saying that a bucket lives elsewhere.
      const std::string host = xmlElementText(answer.body, "Endpoint");
      if (host.empty()) return false;
      target = address_.scheme + "://" + host;
    }
    auto address = redirectedAddress(endpoint_, address_, bucket_, encodedKey_, target);
    if (!address) return false;
    ++redirects_;
    address_ = std::move(*address);
    const std::string_view region =
        answer.header("x-amz-bucket-region").value_or(std::string_view());
    if (canSignRegion(region)) region_ = region;
    send(0);
    return true;
  }

  bool clockCorrected(const HttpAnswer& answer) {
    if (clockCorrected_ || answer.status != 403 || secondsLeft_ <= 0) return false;
    if (xmlElementText(answer.body, "Code") != "RequestTimeTooSkewed") return false;
    const auto text = answer.header("date");
    const auto date = text ? parseHttpDate(*text) : std::nullopt;
    if (!date) return false;
    if (!context_->clocks.learn(endpoint_, *date - context_->clock.now())) return false;
    clockCorrected_ = true;
    send(0);
    return true;
  }

  void finish(std::optional<Error> error) {
    // One thread less to wake for each object; see UploadCompletion.
    if (!file_ && !error) return end_(std::nullopt);
    delivery_->finish([self = shared_from_this(), error = std::move(error)] { self->end_(error); });
  }

  // Constant once started.
  const std::shared_ptr<StoreContext> context_;
  const StoreEndpoint endpoint_;
  const std::shared_ptr<const AWSServiceConfiguration> configuration_;
  const char* const method_;
  const std::string bucket_;
  const std::string encodedKey_;
  const std::shared_ptr<Delivery> delivery_;
  Data data_;
  std::string contentType_;
  End end_;
  std::function<void(const TransferProgress&)> progress_;

  // The state of the attempts.
  std::optional<PartFile> file_;
  /// What the file's should be.
  std::optional<std::string> md5_;
  StoreAddress address_;
  std::string region_;
  std::string hash_;
  /// Of the attempt under way; the store may repeat it when it refuses.
  std::string signature_;
  int attemptsLeft_;
  double secondsLeft_;
  double backoff_ = 0;
  int redirects_ = 0;
  bool clockCorrected_ = false;
};

}  // namespace

double StoreClocks::offset(const StoreEndpoint& store) {
  MutexLock lock(mutex_);
  const auto known = offsets_.find(store.authority());
  return known == offsets_.end() ? 0 : known->second;
}

bool StoreClocks::learn(const StoreEndpoint& store, double offset) {
  if (std::abs(offset) > kLargestClockOffsetSeconds) return false;
  MutexLock lock(mutex_);
  offsets_[store.authority()] = offset;
  return true;
}

TransferUtility::TransferUtility(std::shared_ptr<StoreContext> context, StoreEndpoint endpoint,
                                 AWSServiceConfiguration configuration)
    : context_(std::move(context)),
      endpoint_(std::move(endpoint)),
      configuration_(std::make_shared<const AWSServiceConfiguration>(std::move(configuration))) {}

AWSTask TransferUtility::uploadData(Data data, const std::string& bucket, const std::string& key,
                                    const std::string& contentType,
                                    UploadCompletion completionHandler) {
  const auto transfer =
      std::make_shared<Transfer>(context_, endpoint_, configuration_, "PUT", bucket, key);
  transfer->setUpload(std::move(data), contentType, std::move(completionHandler));
  return {transfer->start()};
}

AWSTask TransferUtility::downloadToURL(const Url& location, const std::string& bucket,
                                       const std::string& key,
                                       AWSS3TransferUtilityDownloadExpression expression,
                                       DownloadCompletion completionHandler) {
  if (!location.text().starts_with("file:///")) {
    return {Error{"ObjectStore", 0, "a download needs a file URL"}};
  }
  auto file = PartFile::create(location.decodedPath());
  if (!file) return {file.error()};
  const auto transfer =
      std::make_shared<Transfer>(context_, endpoint_, configuration_, "GET", bucket, key);
  transfer->setDownload(std::move(*file), location, std::move(expression.progressBlock),
                        std::move(completionHandler));
  return {transfer->start()};
}

}  // namespace qx
