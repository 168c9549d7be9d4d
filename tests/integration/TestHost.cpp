#include "integration/TestHost.h"

#include <pthread.h>
#include <unistd.h>

#include <thread>
#include <utility>

#include "Classes/StorageGetUploadConfigRequest.h"

namespace qx {
namespace {

std::string currentThread() {
  if (gettid() == getpid()) return "main";
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

}  // namespace

class TestHost::Logger : public QXLogger {
 public:
  int threshold() override { return 0; }
  void write(const LogRecord& record) override {
    const std::lock_guard lock(mutex_);
    records_.push_back(record);
  }
  std::vector<LogRecord> records() {
    const std::lock_guard lock(mutex_);
    return records_;
  }

 private:
  std::mutex mutex_;
  std::vector<LogRecord> records_;
};

/// The real seams with the changes that a test asks for: credentials from the backend, transfer
/// timeouts, timers.
class TestHost::Tampering : public MessageClients, public ObjectStore, public Dispatch {
 public:
  Tampering(const Platform& real, const TestHostOptions& options)
      : real_(real), options_(options) {}

  std::shared_ptr<QXMessageAPINetworkingManager> make(const Url& baseURL, HTTPHeaders headers,
                                                      std::optional<double> timeout,
                                                      bool addSignature) override {
    return std::make_shared<Manager>(
        real_.messageClients.make(baseURL, std::move(headers), timeout, addSignature),
        options_.tamper);
  }
  std::string localisedText(std::string_view key) override {
    return real_.messageClients.localisedText(key);
  }

  std::string globalEndpoint() override { return real_.objectStore.globalEndpoint(); }
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override {
    return real_.objectStore.makeServiceConfiguration(region, regionName, std::move(endpoint),
                                                      std::move(credentials));
  }
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override {
    AWSServiceConfiguration changed = configuration;
    if (options_.transferTimeout) {
      changed.timeoutIntervalForRequest = *options_.transferTimeout;
      changed.timeoutIntervalForResource = *options_.transferTimeout;
    }
    real_.objectStore.registerS3TransferUtility(changed, key);
  }
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override {
    return real_.objectStore.S3TransferUtilityForKey(key);
  }
  void removeS3TransferUtility(const std::string& key) override {
    real_.objectStore.removeS3TransferUtility(key);
  }

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override {
    return real_.dispatch.makeSerialQueue(std::move(label));
  }
  DispatchQueue& mainQueue() override { return real_.dispatch.mainQueue(); }
  DispatchQueue& globalQueue() override { return real_.dispatch.globalQueue(); }
  std::shared_ptr<Semaphore> makeSemaphore(int count) override {
    return real_.dispatch.makeSemaphore(count);
  }
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override {
    return std::make_unique<FastTimer>(real_.dispatch.makeTimer(queue), options_.timerSpeed);
  }

 private:
  class Manager : public QXMessageAPINetworkingManager {
   public:
    Manager(std::shared_ptr<QXMessageAPINetworkingManager> real,
            std::function<void(UploadTokenModel&)> tamper)
        : real_(std::move(real)), tamper_(std::move(tamper)) {}
    void request(std::shared_ptr<const APIRequest> message,
                 const std::optional<HTTPHeaders>& headers, double timeoutSeconds,
                 ProgressCallback progress, Completion completion) override {
      real_->request(
          std::move(message), headers, timeoutSeconds, std::move(progress),
          [completion = std::move(completion),
           tamper = tamper_](const QXNetworkingResponse& response) {
            const auto config =
                std::dynamic_pointer_cast<const StorageGetUploadConfigResponse>(response.value);
            if (!tamper || !config) return completion(response);
            auto changed = std::make_shared<StorageGetUploadConfigResponse>(*config);
            for (auto& [scope, model] : changed->uploadTokenMap) tamper(model);
            completion({response.error, changed});
          });
    }

   private:
    const std::shared_ptr<QXMessageAPINetworkingManager> real_;
    const std::function<void(UploadTokenModel&)> tamper_;
  };

  class FastTimer : public Timer {
   public:
    FastTimer(std::unique_ptr<Timer> real, double speed) : real_(std::move(real)), speed_(speed) {}
    void setEventHandler(Work handler) override { real_->setEventHandler(std::move(handler)); }
    void scheduleNow(double interval, double leeway) override {
      real_->scheduleNow(interval / speed_, leeway);
    }
    void resume() override { real_->resume(); }

   private:
    const std::unique_ptr<Timer> real_;
    const double speed_;
  };

  const Platform real_;
  const TestHostOptions& options_;
};

TestHost& TestHost::start(Devstack& devstack, TestHostOptions options) {
  return *new TestHost(devstack, std::move(options));
}

TestHost::TestHost(Devstack& devstack, TestHostOptions options)
    : devstack_(devstack), options_(std::move(options)), user_(devstack.user(options_.user)) {
  if (options_.documentsDirectory) {
    documents_ = *options_.documentsDirectory;
  } else {
    ownDocuments_ = std::make_unique<TemporaryDirectory>();
    documents_ = ownDocuments_->path();
  }
  logger_ = std::make_unique<Logger>();
  LinuxSettings settings;
  settings.logger = logger_.get();
  settings.documentsDirectory = documents_;
  settings.storeEndpoint = options_.storeEndpoint.value_or(devstack.url("store"));
  settings.caFile = options_.caFile;
  settings.reachabilityHosts = {"127.0.0.1"};
  platform_ = std::make_unique<LinuxPlatform>(settings);
  tampering_ = std::make_unique<Tampering>(platform_->seams(), options_);

  Mediator& mediator = platform_->mediator();
  mediator.answer("Account_GetUserId", [this] {
    const std::lock_guard lock(mutex_);
    return Value(user_.userId);
  });
  mediator.answer("Account_GetAccessToken", [this] {
    const std::lock_guard lock(mutex_);
    return Value(user_.accessToken);
  });
  mediator.answer("QXConfig_getServerAddress", [this] { return Value(devstack_.url("backend")); });
  mediator.answer("QXConfig_GetAwsUploaderServerAddress",
                  [this] { return Value(devstack_.url("uploadServer") + "/upload"); });
  mediator.answer("QXConfig_currentEnvironmentIsProduction", [] { return Value(false); });
  mediator.answer("Tracking_Event:parameters:", [this](const std::vector<Value>& arguments) {
    const std::lock_guard lock(mutex_);
    if (*arguments.at(0).asText() == "qx_aws") {
      trackingEvents_.push_back(*arguments.at(1).asDictionary());
    }
    return Value();
  });
  mediator.answer("Tracking_GetLongIdWithCompletion:", [](const std::vector<Value>& arguments) {
    (*arguments.at(0).asHostObject()->as<std::function<LongIdCompletion>>())(7000000001);
    return Value();
  });
  Target_Uploader::registerWith(mediator);
  Platform::install(platform_->seams().with(*tampering_));

  perform("Action_RegisterBackground:",
          {{"callback",
            Value::callback<HostBackgroundCallback>(
                [this](std::string scope, std::optional<std::string> url,
                       std::map<std::string, std::string> extra, std::optional<Error> error) {
                  const std::lock_guard lock(mutex_);
                  backgroundOutcomes_.push_back(
                      {std::move(scope), std::move(url), std::move(extra), std::move(error)});
                })}});
}

void TestHost::perform(const std::string& action, const Dictionary& parameters) {
  platform_->mediator().performTarget("Target_Uploader", action, parameters);
}

void TestHost::setUp() {
  perform("Action_SetUp:", {{"needServerResize", options_.needServerResize},
                            {"resumeStoredTasks", options_.resumeStoredTasks}});
}

void TestHost::signIn(const Devstack::User& user) {
  {
    const std::lock_guard lock(mutex_);
    user_ = user;
  }
  platform_->notifications().post(kUserChangedNotification);
}

UploadOutcome TestHost::upload(Data data, const std::string& scope, const std::string& suffix,
                               const Dictionary& more) {
  auto outcome = std::make_shared<std::optional<UploadOutcome>>();
  Dictionary parameters = more;
  parameters["scope"] = scope;
  parameters["data"] = std::move(data);
  parameters["suffix"] = suffix;
  parameters["complete"] = Value::callback<HostUploadComplete>(
      [this, outcome](std::optional<std::string> url, std::int64_t itemId,
                      std::optional<Error> error) {
        const std::lock_guard lock(mutex_);
        ++completions_;
        *outcome = {std::move(url), itemId, std::move(error), currentThread()};
      });
  perform("Action_Upload:", parameters);
  waitUntil([this, &outcome] {
    const std::lock_guard lock(mutex_);
    return outcome->has_value();
  });
  const std::lock_guard lock(mutex_);
  return outcome->value();
}

DownloadOutcome TestHost::download(const std::string& url, const std::string& scope) {
  struct Shared {
    std::mutex mutex;
    DownloadOutcome outcome;
    bool ended = false;
  };
  auto shared = std::make_shared<Shared>();
  perform("Action_Download:",
          {{"url", url},
           {"scope", scope},
           {"progress", Value::callback<HostDownloadProgress>([shared](double part) {
              const std::lock_guard lock(shared->mutex);
              shared->outcome.progress.push_back(part);
              shared->outcome.progressThread = currentThread();
            })},
           {"complete", Value::callback<HostDownloadComplete>(
                            [this, shared](const std::optional<Url>& location,
                                           const std::optional<Error>& error) {
                              const std::lock_guard lock(mutex_);
                              ++completions_;
                              const std::lock_guard sharedLock(shared->mutex);
                              shared->outcome.location = location;
                              shared->outcome.error = error;
                              shared->ended = true;
                            })}});
  waitUntil([&shared] {
    const std::lock_guard lock(shared->mutex);
    return shared->ended;
  });
  // The last progress report may still be on its way to the main queue.
  waitUntil([] { return false; }, 0.05);
  const std::lock_guard lock(shared->mutex);
  return shared->outcome;
}

std::vector<UploadOutcome> TestHost::uploadAll(const std::vector<Data>& payloads,
                                               const std::string& scope) {
  auto outcomes = std::make_shared<std::vector<UploadOutcome>>(payloads.size());
  auto left = std::make_shared<std::size_t>(payloads.size());
  for (std::size_t i = 0; i < payloads.size(); ++i) {
    perform("Action_Upload:",
            {{"scope", scope},
             {"data", payloads[i]},
             {"suffix", "bin"},
             {"complete",
              Value::callback<HostUploadComplete>(
                  [this, outcomes, left, i](std::optional<std::string> url, std::int64_t itemId,
                                            std::optional<Error> error) {
                    const std::lock_guard lock(mutex_);
                    ++completions_;
                    --*left;
                    (*outcomes)[i] = {std::move(url), itemId, std::move(error), currentThread()};
                  })}});
  }
  waitUntil([this, &left] {
    const std::lock_guard lock(mutex_);
    return *left == 0;
  });
  const std::lock_guard lock(mutex_);
  return *outcomes;
}

int TestHost::completions() {
  const std::lock_guard lock(mutex_);
  return completions_;
}

std::vector<BackgroundOutcome> TestHost::backgroundOutcomes() {
  const std::lock_guard lock(mutex_);
  return backgroundOutcomes_;
}

bool TestHost::waitUntil(const std::function<bool()>& condition, double seconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    // Runs the work that is in the main queue now, then checks the condition.
    platform_->stopMainQueue();
    platform_->runMainQueue();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::vector<LogRecord> TestHost::logRecords() {
  return logger_->records();
}

std::vector<Dictionary> TestHost::trackingEvents() {
  const std::lock_guard lock(mutex_);
  return trackingEvents_;
}

std::string TestHost::keyOf(const std::string& url) const {
  const std::string prefix = devstack_.url("store") + "/" + devstack_.url("bucket") + "/";
  return url.starts_with(prefix) ? url.substr(prefix.size()) : "";
}

}  // namespace qx
