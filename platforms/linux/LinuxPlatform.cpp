#include "platforms/linux/LinuxPlatform.h"

#include <limits>
#include <utility>

#include "http/MessageClient.h"
#include "http/UploadClient.h"
#include "platforms/linux/LinuxReachability.h"
#include "platforms/shared/CodecImageHeaders.h"
#include "platforms/shared/DefaultTrackingEvents.h"
#include "platforms/shared/DeveloperMistakes.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/InProcessNotificationCentre.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/NlohmannJson.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixFiles.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SettingsCheck.h"
#include "platforms/shared/SystemClock.h"
#include "s3/S3ObjectStore.h"

namespace qx {
namespace {

constexpr double kMainQueueLookSeconds = 3;

/// The logger of a host that has none. It wants no record.
class NoLogger : public QXLogger {
 public:
  int threshold() override { return std::numeric_limits<int>::max(); }
  void write(const LogRecord& /*record*/) override {}
};

void tell(QXLogger& logger, const SettingFault& fault) {
  constexpr int kLevel = 5;
  if (logger.threshold() > kLevel) return;
  logger.write({kLevel, "[Error] setting " + fault.setting + ": " + fault.reason, "QXAwsUploader",
                "QXAwsUploader/LinuxPlatform", "LinuxPlatform(settings:)", __LINE__});
}

std::vector<std::string> documentDirectories(const LinuxSettings& settings) {
  const std::optional<std::string> directory =
      settings.documentsDirectory ? settings.documentsDirectory : defaultDocumentsDirectory();
  return directory ? std::vector{*directory} : std::vector<std::string>();
}

}  // namespace

/// The parts in the order in which they are made. Each part uses only parts above it.
struct LinuxPlatform::Parts {
  explicit Parts(LinuxSettings settings)
      : logger(settings.logger != nullptr ? *settings.logger : noLogger),
        trackingEvents(settings.trackingEvents != nullptr ? *settings.trackingEvents
                                                          : defaultTrackingEvents),
        console(settings.console != nullptr ? *settings.console : Console::standardOutput()),
        developer(settings.developer),
        mediator(settings.logger, developer ? &mistakes : nullptr),
        files(documentDirectories(settings)),
        dispatch(std::move(settings.mainQueuePoster)),
        reachability(std::move(settings.reachabilityHosts)),
        engine({.caFile = std::move(settings.caFile),
                .proxy = std::move(settings.proxy),
                .noProxy = std::move(settings.noProxy)}),
        messageClients({engine, digests, random, dispatch.globalQueue(), clock, json},
                       std::move(settings.messageSigner), std::move(settings.localisedText)),
        uploadClients(engine, random, dispatch.globalQueue()),
        objectStore({engine, digests, partFiles, dispatch.globalQueue(), clock},
                    std::move(settings.storeEndpoint),
                    settings.resourceTimeoutCountsStandstillOnly) {
    if (developer) watchMainQueue();
  }

  /// Checks every few seconds whether the main queue runs.
  void watchMainQueue() {
    mainQueueWatch = dispatch.makeTimer(dispatch.globalQueue());
    mainQueueWatch->setEventHandler([this] {
      const PosixDispatch::MainQueueUse use = dispatch.mainQueueUse();
      mistakes.mainQueueAt(use.put, use.started);
    });
    mainQueueWatch->scheduleNow(kMainQueueLookSeconds, 0);
    mainQueueWatch->resume();
  }

  NoLogger noLogger;
  DefaultTrackingEvents defaultTrackingEvents;
  QXLogger& logger;
  QXTrackingEvents& trackingEvents;
  Console& console;
  SystemClock clock;
  SystemRandom random;
  SystemUuid uuid;
  NlohmannJson json;
  LibplistPropertyLists propertyLists;
  CodecImageHeaders imageHeaders;
  OpenSslDigests digests;
  InProcessNotificationCentre notifications;
  const bool developer;
  DeveloperMistakes mistakes;
  Mediator mediator;
  PosixFiles files;
  PosixPartFiles partFiles;
  PosixDispatch dispatch;
  LinuxReachability reachability;
  HttpEngine engine;
  HttpMessageClients messageClients;
  HttpUploadClients uploadClients;
  S3ObjectStore objectStore;
  std::unique_ptr<Timer> mainQueueWatch;
};

std::vector<SettingFault> LinuxPlatform::check(const LinuxSettings& settings) {
  std::vector<SettingFault> faults;
  const auto add = [&faults](const char* setting, std::optional<std::string> reason) {
    if (reason) faults.push_back({setting, *std::move(reason)});
  };
  add("documentsDirectory", faultOfDocumentsDirectory(settings.documentsDirectory));
  add("storeEndpoint", faultOfStoreEndpoint(settings.storeEndpoint));
  if (settings.caFile) add("caFile", faultOfCaFile(*settings.caFile));
  if (settings.proxy) add("proxy", faultOfProxy(*settings.proxy));
  for (const std::string& host : settings.reachabilityHosts) {
    add("reachabilityHosts", faultOfReachabilityHost(host));
  }
  return faults;
}

LinuxPlatform::LinuxPlatform(LinuxSettings settings) {
  const std::vector<SettingFault> faults = check(settings);
  parts_ = std::make_unique<Parts>(std::move(settings));
  for (const SettingFault& fault : faults) {
    tell(parts_->logger, fault);
    if (parts_->developer) parts_->mistakes.tell("Setting " + fault.setting + ": " + fault.reason);
  }
}

LinuxPlatform::~LinuxPlatform() {
  shutDown();
  if (!parts_->developer) return;
  const PosixDispatch::MainQueueUse use = parts_->dispatch.mainQueueUse();
  parts_->mistakes.mainQueueAtTheEnd(use.put, use.started);
}

Mediator& LinuxPlatform::mediator() {
  return parts_->mediator;
}

NotificationCentre& LinuxPlatform::notifications() {
  return parts_->notifications;
}

Platform LinuxPlatform::seams() {
  Parts& parts = *parts_;
  return {.mediator = parts.mediator,
          .logger = parts.logger,
          .notifications = parts.notifications,
          .trackingEvents = parts.trackingEvents,
          .messageClients = parts.messageClients,
          .uploadClients = parts.uploadClients,
          .reachability = parts.reachability,
          .objectStore = parts.objectStore,
          .files = parts.files,
          .propertyLists = parts.propertyLists,
          .json = parts.json,
          .imageHeaders = parts.imageHeaders,
          .digests = parts.digests,
          .dispatch = parts.dispatch,
          .random = parts.random,
          .uuid = parts.uuid,
          .clock = parts.clock,
          .console = parts.console};
}

void LinuxPlatform::runMainQueue() {
  parts_->dispatch.runMainQueue();
}

void LinuxPlatform::stopMainQueue() {
  parts_->dispatch.stopMainQueue();
}

void LinuxPlatform::shutDown() {
  // The reachability, which starts uploads, is stopped first. Then the transfers are stopped, and
  // each ends with an error. Then the remaining work runs, their completions among it, while every
  // seam still works.
  parts_->reachability.stop();
  parts_->engine.stop();
  parts_->dispatch.shutDown();
}

}  // namespace qx
