// A scripted backend. It records the messages that would have been sent and answers them from a
// script.
//
//     FakeMessageClients clients;
//     clients.failOnce("v3/storage/get_upload_config", {"Transport", 1028, "timed out"});
//     clients.answer("v3/storage/get_upload_config", Dictionary{{"upload_token_map", records}});
//
// Threads: every operation may be called from any thread. An answer runs on the queue that was
// given to answerOn(), or else on the sender's thread before request() returns. (The real client
// never answers that early; a library that can deal with it can deal with more than it will meet.)
// A held answer runs on the thread that calls release().
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class FakeMessageClients : public MessageClients {
 public:
  /// The settings of a manager that was made.
  struct Manager {
    std::string baseURL;
    HTTPHeaders headers;
    std::optional<double> timeoutForRequest;
    bool addSignature = false;
  };
  /// A message that was sent.
  struct Request {
    /// The index of its manager in managers().
    std::size_t manager = 0;
    std::string api;
    std::string method;
    OrderedMembers parameters;
    std::vector<MimeBody> mimeBodies;
    std::optional<HTTPHeaders> headers;
    double timeoutSeconds = 0;
    bool hasProgress = false;
  };

  // ---- The script. An api without an answer is answered with an error. `Once` answers come first,
  // in the order in which they were given; after them the standing answer serves all messages.

  /// Answers with `body` as if it had been read from JSON. The message's own decodeResponse decodes
  /// it. A date may be a Date value, a number (seconds since 1970) or a text such as
  /// "2026-11-21T00:06:00Z".
  void answer(const std::string& api, Value body);
  void answerOnce(const std::string& api, Value body);
  /// Answers with an error.
  void fail(const std::string& api, Error error);
  void failOnce(const std::string& api, Error error);
  /// Answers with exactly this response, which may have no value or one of another kind.
  void respond(const std::string& api, QXNetworkingResponse response);
  /// Keeps messages of `api` unanswered until release() is called.
  void hold(const std::string& api);
  /// Answers the held messages, the oldest first, by the present script, and holds no more
  /// messages.
  void release(const std::string& api);
  /// Answers on this queue instead of on the sender's thread.
  void answerOn(DispatchQueue& queue);
  /// Sets the text that localisedText() yields for a key. A key without a text yields itself.
  void localise(std::string key, std::string text);

  // ---- The record

  std::vector<Manager> managers() const;
  std::vector<Request> requests() const;
  /// The requests of one api.
  std::vector<Request> requests(std::string_view api) const;
  /// The number of messages that are held now.
  std::size_t held() const;

  std::shared_ptr<QXMessageAPINetworkingManager> make(const Url& baseURL, HTTPHeaders headers,
                                                      std::optional<double> timeoutForRequest,
                                                      bool addSignature) override;
  std::string localisedText(std::string_view key) override;

 private:
  class Client;
  using Completion = QXMessageAPINetworkingManager::Completion;
  using Script = std::function<QXNetworkingResponse(const APIRequest&)>;
  struct Held {
    std::shared_ptr<const APIRequest> message;
    Completion completion;
  };
  struct Api {
    std::deque<Script> once;
    Script standing;
    bool holding = false;
    std::deque<Held> held;
  };

  static Script decoding(Value body);
  void sent(Request request, std::shared_ptr<const APIRequest> message, Completion completion);
  void complete(const std::string& api, const std::shared_ptr<const APIRequest>& message,
                const Completion& completion);

  mutable Mutex mutex_;
  std::map<std::string, Api, std::less<>> apis_ QX_GUARDED_BY(mutex_);
  std::map<std::string, std::string, std::less<>> texts_ QX_GUARDED_BY(mutex_);
  std::vector<Manager> managers_ QX_GUARDED_BY(mutex_);
  std::vector<Request> requests_ QX_GUARDED_BY(mutex_);
  DispatchQueue* queue_ QX_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace qx
