#include "http/UploadClient.h"

#include <memory>
#include <utility>
#include <vector>

#include "http/Delivery.h"
#include "http/Headers.h"
#include "http/Multipart.h"

namespace qx {
namespace {

Data textOf(const Value& value) {
  if (const auto* data = value.asData()) return *data;
  if (const auto* text = value.asText()) return Data(*text);
  if (const auto* boolean = value.asBool()) return Data(std::string(*boolean ? "true" : "false"));
  if (const auto* number = value.asInt()) return Data(std::to_string(*number));
  if (const auto* number = value.asUInt()) return Data(std::to_string(*number));
  return {};
}

class UploadManager : public QXNetworkingManager {
 public:
  UploadManager(Http& http, Random& random, DispatchQueue& completions, HTTPHeaders headers,
                double timeoutForRequest)
      : http_(http),
        random_(random),
        completions_(completions),
        headers_(std::move(headers)),
        timeoutForRequest_(timeoutForRequest) {}

  std::shared_ptr<Cancellable> upload(const QXNetworkingUploadRequest& request,
                                      ProgressCallback progress, Completion completion) override {
    MultipartFormData form;
    if (request.parameters) {
      for (const auto& [name, value] : *request.parameters) form.append(textOf(value), name);
    }
    if (request.multipartFormData) request.multipartFormData(form);
    MultipartBody body = makeMultipartBody(form.parts(), makeBoundary(random_));

    HttpRequest post;
    post.method = "POST";
    post.url = request.url;
    post.headers = headers_;
    for (const auto& [name, value] : request.headers) setHeader(post.headers, name, value);
    setHeader(post.headers, "Content-Type", std::move(body.contentType));
    if (request.acceptableContentTypes && !request.acceptableContentTypes->empty()) {
      std::string types;
      for (const std::string& type : *request.acceptableContentTypes) {
        types += (types.empty() ? "" : ", ") + type;
      }
      setHeader(post.headers, "Accept", std::move(types));
    }
    post.body = std::move(body.pieces);
    post.idleTimeoutSeconds = timeoutForRequest_;
    // The status alone says whether the server has accepted the form.
    post.headIsAnswer = true;

    auto delivery = std::make_shared<Delivery>(completions_);
    if (progress) {
      post.progress = [delivery, progress](std::int64_t done, std::int64_t total) {
        const double fraction =
            total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
        delivery->progress([progress, fraction] { progress(fraction); });
      };
    }
    return http_.send(std::move(post), [delivery, completion](HttpAnswer answer) {
      QXNetworkingUploadResponse response;
      response.error = std::move(answer.error);
      if (!response.error) response.httpURLResponse = HTTPURLResponse{answer.status};
      delivery->finish([completion, response = std::move(response)] {
        if (completion) completion(response);
      });
    });
  }

 private:
  Http& http_;
  Random& random_;
  DispatchQueue& completions_;
  const HTTPHeaders headers_;
  const double timeoutForRequest_;
};

}  // namespace

std::shared_ptr<QXNetworkingManager> HttpUploadClients::make(HTTPHeaders headers,
                                                             double timeoutForRequest) {
  return std::make_shared<UploadManager>(http_, random_, completions_, std::move(headers),
                                         timeoutForRequest);
}

HTTPHeaders HttpUploadClients::defaultHeaders() {
  return {{"Accept", "*/*"}, {"User-Agent", libraryUserAgent()}};
}

std::string HttpUploadClients::QXNetworkingUserAgent() {
  return libraryUserAgent();
}

}  // namespace qx
