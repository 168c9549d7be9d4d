#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "bench/UploadSides.h"
#include "http/Headers.h"
#include "platform/Error.h"
#include "platform/Hex.h"
#include "platform/Url.h"
#include "platforms/shared/OpenSslDigests.h"
#include "s3/SigV4.h"

namespace qx::bench {
namespace {

template <typename T>
void set(CURL* easy, CURLoption option, T value) {
  if (curl_easy_setopt(easy, option, value) != CURLE_OK) fatal("libcurl refuses an option");
}

/// One request under way. Its handle is used for one request after the other.
struct Request {
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  Data body;
  std::size_t sent = 0;
};

std::size_t onRead(char* out, std::size_t size, std::size_t count, void* data) {
  auto& request = *static_cast<Request*>(data);
  const std::size_t bytes = std::min(size * count, request.body.size() - request.sent);
  std::memcpy(out, request.body.bytes() + request.sent, bytes);
  request.sent += bytes;
  return bytes;
}

std::size_t onAnswer(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

class Loop : public Side {
 public:
  Loop(const UploadSink& sink, bool tls, LoopSigning signing)
      : url_(sink.url(tls)),
        certificateFile_(sink.certificateFile()),
        host_(AddressParts(url_).authority),
        userAgent_(libraryUserAgent()),
        sessionToken_(sessionToken()),
        hashed_(!tls),
        signing_(signing) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = curl_multi_init();
    if (multi_ == nullptr) fatal("libcurl has no memory");
    // One signature stands for every payload, because the sink accepts every signature.
    signature_ = sign("/" + key(0), payloadHash({}));
  }
  ~Loop() override {
    for (Request& request : requests_) {
      curl_slist_free_all(request.headers);
      curl_easy_cleanup(request.easy);
    }
    curl_multi_cleanup(multi_);
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  void upload(const Data& object, std::int64_t count, int inFlight) override {
    // Made once, because the handles point at them.
    if (requests_.empty()) requests_.resize(static_cast<std::size_t>(inFlight));
    std::int64_t toStart = count;
    std::int64_t toFinish = count;
    for (Request& request : requests_) {
      if (toStart == 0) break;
      if (request.easy == nullptr) request.easy = makeHandle(request);
      start(request, object, --toStart);
    }
    while (toFinish > 0) {
      int running = 0;
      curl_multi_perform(multi_, &running);
      int left = 0;
      while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        Request* request = nullptr;
        long status = 0;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &request);
        curl_easy_getinfo(message->easy_handle, CURLINFO_RESPONSE_CODE, &status);
        if (message->data.result != CURLE_OK || status != 200) fatal("an upload failed");
        curl_multi_remove_handle(multi_, request->easy);
        --toFinish;
        if (toStart > 0) start(*request, object, --toStart);
      }
      if (toFinish > 0 && running > 0) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
  }

 private:
  struct Signature {
    std::string time;
    std::string payloadHash;
    std::string authorization;
  };

  static std::string key(std::int64_t number) {
    return std::string(kAuthorizedPath) + "1795219560-123456" + std::to_string(number) + ".jpg";
  }

  CURL* makeHandle(Request& request) {
    CURL* easy = curl_easy_init();
    if (easy == nullptr) fatal("libcurl has no memory");
    set(easy, CURLOPT_NOSIGNAL, 1L);
    set(easy, CURLOPT_TCP_NODELAY, 1L);
    set(easy, CURLOPT_PROXY, "");
    set(easy, CURLOPT_CAINFO, certificateFile_.c_str());
    set(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(easy, CURLOPT_USERAGENT, userAgent_.c_str());
    set(easy, CURLOPT_UPLOAD, 1L);
    set(easy, CURLOPT_READFUNCTION, onRead);
    set(easy, CURLOPT_READDATA, &request);
    set(easy, CURLOPT_WRITEFUNCTION, onAnswer);
    set(easy, CURLOPT_PRIVATE, &request);
    return easy;
  }

  std::string payloadHash(const Data& object) {
    return hashed_ ? hex(digests_.sha256(object.text())) : std::string(kUnsignedPayload);
  }

  Signature sign(const std::string& path, std::string payloadHash) {
    Signature signature{sigV4Time(std::time(nullptr)), std::move(payloadHash), {}};
    SigV4Request toSign;
    toSign.method = "PUT";
    toSign.path = path;
    toSign.headers = {{"host", host_},
                      {"x-amz-content-sha256", signature.payloadHash},
                      {"x-amz-date", signature.time},
                      {"x-amz-security-token", sessionToken_}};
    toSign.payloadHash = signature.payloadHash;
    toSign.region = kRegion;
    signature.authorization = signer_.authorization(toSign, signature.time, kAccessKey, kSecretKey);
    return signature;
  }

  void start(Request& request, const Data& object, std::int64_t number) {
    const std::string path = "/" + std::string(kBucket) + "/" + key(number);
    if (signing_ == LoopSigning::each) signature_ = sign(path, payloadHash(object));
    curl_slist_free_all(request.headers);
    request.headers = nullptr;
    const auto append = [&request](const std::string& line) {
      request.headers = curl_slist_append(request.headers, line.c_str());
    };
    append("host: " + host_);
    append("x-amz-content-sha256: " + signature_.payloadHash);
    append("x-amz-date: " + signature_.time);
    append("x-amz-security-token: " + sessionToken_);
    append("authorization: " + signature_.authorization);
    const bool small = object.size() < std::size_t{1} << 20;
    if (small) append("Expect:");
    request.body = object;
    request.sent = 0;
    set(request.easy, CURLOPT_URL, (url_ + path).c_str());
    set(request.easy, CURLOPT_HTTPHEADER, request.headers);
    set(request.easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(object.size()));
    set(request.easy, CURLOPT_UPLOAD_BUFFERSIZE, small ? 64L << 10 : 512L << 10);
    curl_multi_add_handle(multi_, request.easy);
  }

  const std::string url_;
  const std::string certificateFile_;
  const std::string host_;
  const std::string userAgent_;
  const std::string sessionToken_;
  const bool hashed_;
  const LoopSigning signing_;
  OpenSslDigests digests_;
  SigV4Signer signer_{digests_};
  Signature signature_;
  CURLM* multi_ = nullptr;
  std::vector<Request> requests_;
};

}  // namespace

std::unique_ptr<Side> loopSide(const UploadSink& sink, bool tls, LoopSigning signing) {
  return std::make_unique<Loop>(sink, tls, signing);
}

}  // namespace qx::bench
