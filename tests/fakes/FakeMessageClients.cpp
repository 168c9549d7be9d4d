#include "fakes/FakeMessageClients.h"

#include <chrono>
#include <cstdio>
#include <utility>

namespace qx {
namespace {

std::optional<double> secondsOf(const std::string& text) {
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int end = 0;
  const int read = std::sscanf(text.c_str(), "%4d-%2u-%2uT%2d:%2d:%2dZ%n", &year, &month, &day,
                               &hour, &minute, &second, &end);
  if (read != 6 || static_cast<std::size_t>(end) != text.size() || end == 0) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{month},
                                         std::chrono::day{day}};
  if (!date.ok()) return std::nullopt;
  const auto days = std::chrono::sys_days{date}.time_since_epoch().count();
  return static_cast<double>(days) * 86400 + hour * 3600 + minute * 60 + second;
}

/// Yields the value that the script has set, for any body.
class ScriptedDecoder : public APIDecoder {
 public:
  explicit ScriptedDecoder(Value body) : body_(std::move(body)) {}
  Result<Value> decode(const Data&) const override { return body_; }
  Result<Date> date(const Value& value) const override {
    if (const Date* date = value.asDate()) return *date;
    if (const auto* seconds = value.asInt()) return Date{static_cast<double>(*seconds)};
    if (const double* seconds = value.asDouble()) return Date{*seconds};
    if (const std::string* text = value.asText()) {
      if (const auto seconds = secondsOf(*text)) return Date{*seconds};
    }
    return Error{"APIDecoder", 1, "not a date"};
  }

 private:
  Value body_;
};

/// Leaves absent optional fields out, as every encoder does.
class PlainEncoder : public APIEncoder {
 public:
  OrderedMembers encode(OrderedMembers fields) const override {
    std::erase_if(fields, [](const auto& field) { return field.second.isNull(); });
    return fields;
  }
};

}  // namespace

class FakeMessageClients::Client : public QXMessageAPINetworkingManager {
 public:
  Client(FakeMessageClients& owner, std::size_t index) : owner_(owner), index_(index) {}
  void request(std::shared_ptr<const APIRequest> message, const std::optional<HTTPHeaders>& headers,
               double timeoutSeconds, ProgressCallback progress, Completion completion) override {
    Request request;
    request.manager = index_;
    request.api = message->api();
    const auto methods = message->methods();
    request.method = methods.empty() ? "" : methods.front();
    request.parameters = message->parseParamater(PlainEncoder());
    request.mimeBodies = message->mimeBodies();
    request.headers = headers;
    request.timeoutSeconds = timeoutSeconds;
    request.hasProgress = static_cast<bool>(progress);
    owner_.sent(std::move(request), std::move(message), std::move(completion));
  }

 private:
  FakeMessageClients& owner_;
  const std::size_t index_;
};

FakeMessageClients::Script FakeMessageClients::decoding(Value body) {
  return [body = std::move(body)](const APIRequest& message) {
    auto value = message.decodeResponse(Data(), ScriptedDecoder(body));
    if (!value) return QXNetworkingResponse{value.error(), nullptr};
    return QXNetworkingResponse{std::nullopt, *value};
  };
}

void FakeMessageClients::answer(const std::string& api, Value body) {
  MutexLock lock(mutex_);
  apis_[api].standing = decoding(std::move(body));
}

void FakeMessageClients::answerOnce(const std::string& api, Value body) {
  MutexLock lock(mutex_);
  apis_[api].once.push_back(decoding(std::move(body)));
}

void FakeMessageClients::fail(const std::string& api, Error error) {
  respond(api, {std::move(error), nullptr});
}

void FakeMessageClients::failOnce(const std::string& api, Error error) {
  MutexLock lock(mutex_);
  apis_[api].once.push_back([response = QXNetworkingResponse{std::move(error), nullptr}](
                                const APIRequest&) { return response; });
}

void FakeMessageClients::respond(const std::string& api, QXNetworkingResponse response) {
  MutexLock lock(mutex_);
  apis_[api].standing = [response = std::move(response)](const APIRequest&) { return response; };
}

void FakeMessageClients::hold(const std::string& api) {
  MutexLock lock(mutex_);
  apis_[api].holding = true;
}

void FakeMessageClients::release(const std::string& api) {
  std::deque<Held> held;
  {
    MutexLock lock(mutex_);
    apis_[api].holding = false;
    held.swap(apis_[api].held);
  }
  for (const Held& one : held) complete(api, one.message, one.completion);
}

void FakeMessageClients::answerOn(DispatchQueue& queue) {
  MutexLock lock(mutex_);
  queue_ = &queue;
}

void FakeMessageClients::localise(std::string key, std::string text) {
  MutexLock lock(mutex_);
  texts_[std::move(key)] = std::move(text);
}

std::vector<FakeMessageClients::Manager> FakeMessageClients::managers() const {
  MutexLock lock(mutex_);
  return managers_;
}

std::vector<FakeMessageClients::Request> FakeMessageClients::requests() const {
  MutexLock lock(mutex_);
  return requests_;
}

std::vector<FakeMessageClients::Request> FakeMessageClients::requests(std::string_view api) const {
  auto all = requests();
  std::erase_if(all, [&](const Request& request) { return request.api != api; });
  return all;
}

std::size_t FakeMessageClients::held() const {
  MutexLock lock(mutex_);
  std::size_t count = 0;
  for (const auto& [name, api] : apis_) count += api.held.size();
  return count;
}

std::shared_ptr<QXMessageAPINetworkingManager> FakeMessageClients::make(
    const Url& baseURL, HTTPHeaders headers, std::optional<double> timeoutForRequest,
    bool addSignature) {
  MutexLock lock(mutex_);
  managers_.push_back({baseURL.text(), std::move(headers), timeoutForRequest, addSignature});
  return std::make_shared<Client>(*this, managers_.size() - 1);
}

std::string FakeMessageClients::localisedText(std::string_view key) {
  MutexLock lock(mutex_);
  const auto text = texts_.find(key);
  return text == texts_.end() ? std::string(key) : text->second;
}

void FakeMessageClients::sent(Request request, std::shared_ptr<const APIRequest> message,
                              Completion completion) {
  const std::string name = request.api;
  DispatchQueue* queue = nullptr;
  {
    MutexLock lock(mutex_);
    requests_.push_back(std::move(request));
    Api& api = apis_[name];
    if (api.holding) {
      api.held.push_back({std::move(message), std::move(completion)});
      return;
    }
    queue = queue_;
  }
  if (queue == nullptr) return complete(name, message, completion);
  queue->async([this, name, message, completion] { complete(name, message, completion); });
}

void FakeMessageClients::complete(const std::string& name,
                                  const std::shared_ptr<const APIRequest>& message,
                                  const Completion& completion) {
  Script script;
  {
    MutexLock lock(mutex_);
    Api& api = apis_[name];
    if (api.once.empty()) {
      script = api.standing;
    } else {
      script = std::move(api.once.front());
      api.once.pop_front();
    }
  }
  const QXNetworkingResponse response =
      script ? script(*message)
             : QXNetworkingResponse{Error{"Fake", -1, "no answer scripted for " + name}, nullptr};
  if (completion) completion(response);
}

}  // namespace qx
