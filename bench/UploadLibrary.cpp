#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "Classes/Target_Uploader.h"
#include "bench/UploadSides.h"
#include "platform/Error.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx::bench {
namespace {

LinuxSettings settings(const UploadSink& sink, bool tls, const std::string& directory) {
  LinuxSettings settings;
  settings.documentsDirectory = directory;
  settings.storeEndpoint = sink.url(tls);
  settings.caFile = sink.certificateFile();
  settings.reachabilityHosts = {"127.0.0.1"};
  return settings;
}

/// A host in production with every answer registered.
class Library : public Side {
 public:
  Library(const UploadSink& sink, bool tls, const std::string& directory)
      : platform_(settings(sink, tls, directory)) {
    Mediator& mediator = platform_.mediator();
    mediator.answer("Account_GetUserId", [] { return Value("100001"); });
    mediator.answer("Account_GetAccessToken", [] { return Value("token-of-user-100001"); });
    mediator.answer("QXConfig_getServerAddress", [url = sink.url(false)] { return Value(url); });
    mediator.answer("QXConfig_GetAwsUploaderServerAddress",
                    [url = sink.url(false)] { return Value(url); });
    mediator.answer("QXConfig_currentEnvironmentIsProduction", [] { return Value(true); });
    mediator.answer("Tracking_Event:parameters:", [this](const std::vector<Value>&) {
      ++trackingEvents_;
      return Value();
    });
    mediator.answer("Tracking_GetLongIdWithCompletion:", [this](const std::vector<Value>& asked) {
      using Completion = std::function<LongIdCompletion>;
      const HostObject* object = asked.empty() ? nullptr : asked.front().asHostObject();
      const auto* complete = object != nullptr ? object->as<Completion>() : nullptr;
      if (complete != nullptr) (*complete)(nextItemId_++);
      return Value();
    });
    Target_Uploader::registerWith(mediator);
    Platform::install(platform_.seams());
    mediator.performTarget("Target_Uploader", "Action_SetUp:", {{"needServerResize", false}});
  }

  void upload(const Data& object, std::int64_t count, int inFlight) override {
    toStart_ = count;
    toFinish_ = count;
    for (int i = 0; i < inFlight && toStart_ > 0; ++i) start(object);
    platform_.runMainQueue();
  }

 private:
  void start(const Data& object) {
    --toStart_;
    const auto complete = [this, object](const std::optional<std::string>& /*url*/,
                                         std::int64_t /*itemId*/,
                                         const std::optional<Error>& error) {
      // Called on the main queue, which is the thread of upload().
      if (error) fatal("an upload failed: " + error->description);
      if (toStart_ > 0) start(object);
      if (--toFinish_ == 0) platform_.stopMainQueue();
    };
    platform_.mediator().performTarget(
        "Target_Uploader", "Action_Upload:",
        {{"scope", std::string(kScope)},
         {"data", object},
         {"suffix", "jpg"},
         {"complete", Value::callback<HostUploadComplete>(complete)}});
  }

  std::int64_t toStart_ = 0;
  std::int64_t toFinish_ = 0;
  std::int64_t trackingEvents_ = 0;
  std::int64_t nextItemId_ = 1;
  LinuxPlatform platform_;
};

}  // namespace

std::unique_ptr<Side> librarySide(const UploadSink& sink, bool tls, const std::string& directory) {
  return std::make_unique<Library>(sink, tls, directory);
}

}  // namespace qx::bench
