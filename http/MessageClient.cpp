#include "http/MessageClient.h"

#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

#include "http/Delivery.h"
#include "http/Headers.h"
#include "http/Multipart.h"
#include "http/Redaction.h"
#include "http/Rfc3339.h"
#include "http/UriEncoding.h"
#include "platform/APIError.h"
#include "platform/Url.h"

namespace qx {
namespace {

/// The time for a message when neither the message nor its manager has a timeout.
constexpr double kDefaultTimeoutSeconds = 60;
/// The size of the longest answer that is read. The credentials of 500 scopes fit into it. Reading
/// an answer takes up to ten times its size in memory.
constexpr std::size_t kBodyLimit = 1 << 20;
constexpr const char* kTokenHeader = "ACCESS-TOKEN";

class MessageEncoder : public APIEncoder {
 public:
  OrderedMembers encode(OrderedMembers fields) const override {
    std::erase_if(fields, [](const auto& field) { return field.second.isNull(); });
    for (auto& [name, value] : fields) {
      const Date* date = value.asDate();
      if (const auto text = date ? rfc3339Text(date->secondsSince1970) : std::nullopt) {
        value = *text;
      }
    }
    return fields;
  }
};

class MessageDecoder : public APIDecoder {
 public:
  explicit MessageDecoder(Json& json) : json_(json) {}
  Result<Value> decode(const Data& body) const override {
    auto value = json_.decode(body);
    if (value) return value;
    return Error{"APIDecoder", value.error().code, value.error().description};
  }
  Result<Date> date(const Value& value) const override {
    const std::string* text = value.asText();
    const auto seconds = text ? parseRfc3339(*text) : std::nullopt;
    if (!seconds) return Error{"APIDecoder", 1, "not a date in RFC 3339 form with a zone"};
    return Date{*seconds};
  }

 private:
  Json& json_;
};

std::string decimal(double value) {
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), end.ptr};
}

/// The text of a parameter in a query or form. Nothing for a value that has no text.
std::optional<std::string> parameterText(const Value& value) {
  if (const auto* text = value.asText()) return *text;
  if (const auto* boolean = value.asBool()) return *boolean ? "true" : "false";
  if (const auto* number = value.asInt()) return std::to_string(*number);
  if (const auto* number = value.asUInt()) return std::to_string(*number);
  if (const auto* number = value.asDouble(); number != nullptr && std::isfinite(*number)) {
    return decimal(*number);
  }
  return std::nullopt;
}

/// The path and the query of a URL as they stand on the request line.
std::string pathAndQuery(std::string_view url) {
  const std::string_view rest = AddressParts(url).rest;
  return (rest.starts_with('/') ? "" : "/") + std::string(rest);
}

std::string messageUrl(std::string_view base, std::string_view api) {
  base = base.substr(0, base.find_first_of("?#"));
  while (base.ends_with('/')) base.remove_suffix(1);
  while (api.starts_with('/')) api.remove_prefix(1);
  return std::string(base) + "/" + std::string(api);
}

class MessageManager : public QXMessageAPINetworkingManager {
 public:
  struct Environment {
    MessageSeams seams;
    MessageSigner signer;
  };

  MessageManager(Environment environment, std::string baseURL, HTTPHeaders headers,
                 std::optional<double> timeoutForRequest, bool addSignature)
      : environment_(std::move(environment)),
        baseURL_(std::move(baseURL)),
        headers_(std::move(headers)),
        timeoutForRequest_(timeoutForRequest),
        addSignature_(addSignature),
        token_({std::string(headerOf(headers_, kTokenHeader).value_or(""))}) {}

  void request(std::shared_ptr<const APIRequest> message, const std::optional<HTTPHeaders>& headers,
               double timeoutSeconds, ProgressCallback progress, Completion completion) override {
    auto delivery = std::make_shared<Delivery>(environment_.seams.completions);
    auto built = build(*message, headers);
    if (!built) {
      deliver(*delivery, std::move(completion), {built.error(), nullptr});
      return;
    }
    auto& [request, secrets] = *built;
    // A message is small, so its time limit applies to the whole exchange. A server that sends a
    // byte now and then cannot hold up those who wait for the answer.
    request.totalTimeoutSeconds =
        timeoutSeconds > 0 ? timeoutSeconds : timeoutForRequest_.value_or(kDefaultTimeoutSeconds);
    request.idleTimeoutSeconds = request.totalTimeoutSeconds;
    request.bodyLimit = kBodyLimit;
    if (progress) {
      request.progress = [delivery, progress](std::int64_t done, std::int64_t total) {
        const double fraction =
            total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
        delivery->progress([progress, fraction] { progress(fraction); });
      };
    }
    environment_.seams.http.send(
        std::move(request),
        [delivery, message = std::move(message), completion = std::move(completion),
         secrets = std::move(secrets), &json = environment_.seams.json](HttpAnswer answer) mutable {
          // The answer is decoded on the completion queue, because all transfers need the engine's
          // thread.
          delivery->finish([message = std::move(message), completion = std::move(completion),
                            secrets = std::move(secrets), &json,
                            answer = std::move(answer)]() mutable {
            QXNetworkingResponse response = responseOf(*message, std::move(answer), json);
            if (response.error) {
              response.error->description = SecretsInForce::leftOutOf(
                  response.error->description, {secrets.begin(), secrets.end()});
            }
            if (completion) completion(response);
          });
        });
  }

 private:
  struct Built {
    HttpRequest request;
    /// The access token and the signature, which an error text must not repeat.
    std::vector<std::string> secrets;
  };

  static void deliver(Delivery& delivery, Completion completion, QXNetworkingResponse response) {
    delivery.finish([completion = std::move(completion), response = std::move(response)] {
      if (completion) completion(response);
    });
  }

  Result<Built> build(const APIRequest& message, const std::optional<HTTPHeaders>& headers) {
    Built built;
    HttpRequest& request = built.request;
    const auto methods = message.methods();
    if (methods.empty())
      return Error{std::string(kNetworkingErrorDomain), 0, "the message has no method"};
    request.method = methods.front();
    request.url = messageUrl(baseURL_, message.api());
    request.headers = headers_;
    if (headers) {
      for (const auto& [name, value] : *headers) setHeader(request.headers, name, value);
    }

    const OrderedMembers parameters = message.parseParamater(MessageEncoder());
    const std::vector<MimeBody> mimeBodies = message.mimeBodies();
    std::string signedBody;
    if (!mimeBodies.empty()) {
      MultipartFormData form;
      for (const auto& [name, value] : parameters) {
        form.append(Data(parameterText(value).value_or("")), name);
      }
      for (const MimeBody& part : mimeBodies) form.append(part.data, part.name);
      MultipartBody body = makeMultipartBody(form.parts(), makeBoundary(environment_.seams.random));
      setHeader(request.headers, "Content-Type", std::move(body.contentType));
      request.body = std::move(body.pieces);
      for (const Data& piece : request.body) signedBody += piece.text();
    } else if (request.method == "GET" || request.method == "HEAD") {
      char separator = '?';
      for (const auto& [name, value] : parameters) {
        const auto text = parameterText(value);
        if (!text) return Error{"APIEncoder", 1, "a query cannot hold the parameter " + name};
        request.url += separator + percentEncode(name) + "=" + percentEncode(*text);
        separator = '&';
      }
    } else {
      auto body = environment_.seams.json.encode(parameters);
      if (!body) return Error{"APIEncoder", 1, "a parameter cannot be written as JSON"};
      signedBody = *body;
      setHeader(request.headers, "Content-Type", "application/json");
      request.body.emplace_back(std::move(*body));
    }
    built.secrets.emplace_back(headerOf(request.headers, kTokenHeader).value_or(""));
    if (addSignature_) {
      const std::string path = pathAndQuery(request.url);
      MessageToSign toSign;
      toSign.method = request.method;
      toSign.pathAndQuery = path;
      toSign.time = static_cast<std::int64_t>(std::floor(environment_.seams.clock.now()));
      toSign.body = signedBody;
      toSign.accessToken = headerOf(request.headers, kTokenHeader).value_or("");
      request.headers.push_back(environment_.signer(toSign));
      const std::string& signature = request.headers.back().second;
      built.secrets.push_back(signature);
      // An error text must not repeat the digest in "t=...,v1=<digest>" alone, either.
      built.secrets.push_back(signature.substr(signature.rfind('=') + 1));
    }
    return built;
  }

  static QXNetworkingResponse responseOf(const APIRequest& message, HttpAnswer answer, Json& json) {
    if (answer.error) return {answer.error, nullptr};
    const Data body(std::move(answer.body));
    const MessageDecoder decoder(json);
    if (answer.status / 100 != 2) {
      return {Error{std::string(kNetworkingErrorDomain), answer.status,
                    failureText(body, answer.status, decoder)},
              nullptr};
    }
    auto value = message.decodeResponse(body, decoder);
    if (!value) return {value.error(), nullptr};
    return {std::nullopt, std::move(*value)};
  }

  /// The message of the backend's error record, or "HTTP <status>" when the body is no such record.
  static std::string failureText(const Data& body, int status, const APIDecoder& decoder) {
    const auto value = decoder.decode(body);
    auto record = value ? APIError::decode(*value) : Result<APIError>(value.error());
    return record ? record->message : "HTTP " + std::to_string(status);
  }

  const Environment environment_;
  const std::string baseURL_;
  const HTTPHeaders headers_;
  const std::optional<double> timeoutForRequest_;
  const bool addSignature_;
  /// Keeps the access token in force as long as messages may be sent with it.
  const SecretsInForce::Holder token_;
};

std::string englishText(std::string_view key) {
  if (key == "SUCCESS") return "Success";
  if (key == "INTERNAL_ERROR") return "Internal error";
  return std::string(key);
}

}  // namespace

HttpMessageClients::HttpMessageClients(const MessageSeams& seams, MessageSigner signer,
                                       std::function<std::string(std::string_view)> localisedText)
    : seams_(seams),
      signer_(signer ? std::move(signer)
                     : MessageSigner([&digests = seams_.digests](const MessageToSign& message) {
                         return hmacMessageSignature(digests, message);
                       })),
      localisedText_(localisedText ? std::move(localisedText) : englishText) {}

std::shared_ptr<QXMessageAPINetworkingManager> HttpMessageClients::make(
    const Url& baseURL, HTTPHeaders headers, std::optional<double> timeoutForRequest,
    bool addSignature) {
  return std::make_shared<MessageManager>(MessageManager::Environment{seams_, signer_},
                                          baseURL.text(), std::move(headers), timeoutForRequest,
                                          addSignature);
}

std::string HttpMessageClients::localisedText(std::string_view key) {
  return localisedText_(key);
}

}  // namespace qx
