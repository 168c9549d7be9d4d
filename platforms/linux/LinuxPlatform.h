// The platform on Linux: the object that a host makes first, configures and installs.
//
//     qx::LinuxPlatform platform({.logger = &myLogger, .trackingEvents = &myTracker});
//     platform.mediator().answer("Account_GetUserId", [] { return qx::Value("42"); });
//     qx::Target_Uploader::registerWith(platform.mediator());
//     qx::Platform::install(platform.seams());
//     platform.runMainQueue();
//
// Threads: one thread makes and installs the platform. The platform owns the HTTP engine's thread,
// the threads of the queues and timers, and the reachability thread; shutDown() ends them.
// Ownership: the platform must outlive all work of the library. A host keeps it until the process
// ends, or destroys it after shutDown() and sends no action any more.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http/MessageSignature.h"
#include "platform/Export.h"
#include "platform/Platform.h"
#include "platforms/shared/Mediator.h"

namespace qx {

struct LinuxSettings {
  /// The host's logger. Null: log records are dropped.
  QXLogger* logger = nullptr;
  /// The host's item-tag tracker. Null: item tags are dropped.
  QXTrackingEvents* trackingEvents = nullptr;
  /// The user's documents directory. Absent: $XDG_DATA_HOME/qxawsuploader, or
  /// ~/.local/share/qxawsuploader when $XDG_DATA_HOME is not set.
  std::optional<std::string> documentsDirectory = {};
  /// The object store's global endpoint.
  std::string storeEndpoint = "https://s3.amazonaws.com";
  /// A transfer to or from the store has 30 seconds, its further attempts included. False: the
  /// seconds count from its start, so that a transfer that takes longer fails however much has
  /// moved. True: only time in which nothing moves counts, so that a transfer on a slow line
  /// succeeds and one on a dead line still ends.
  bool resourceTimeoutCountsStandstillOnly = false;
  /// The PEM file of the certificate authorities to trust. Absent: the system's authorities.
  std::optional<std::string> caFile = {};
  /// The HTTP proxy for every request ("http://proxy:3128"), and the hosts that are reached without
  /// it (comma-separated). Absent: no proxy. The environment is not read.
  std::optional<std::string> proxy = {};
  std::optional<std::string> noProxy = {};
  /// Host names or addresses. The network counts as reachable when there is a route to one of them,
  /// over loopback, too. Empty: it counts as reachable when an interface other than loopback is up
  /// and has an address.
  std::vector<std::string> reachabilityHosts = {};
  /// Hands work to the host's own main loop, which runs one piece after the other on the main
  /// thread. Absent: the host calls runMainQueue().
  std::function<void(Work)> mainQueuePoster = {};
  /// Signs backend messages. Absent: hmacMessageSignature().
  MessageSigner messageSigner = {};
  /// The texts for "SUCCESS" and "INTERNAL_ERROR" in the host's language. Absent: English.
  std::function<std::string(std::string_view)> localisedText = {};
  /// Takes the lines that the library prints. Null: they go to standard output.
  Console* console = nullptr;
  /// True, for a host under development: the usual mistakes of a host (an unknown action, a missing
  /// key, an answer of the wrong type, a main queue that never runs) are one line each on standard
  /// error.
  bool developer = false;
};

/// A setting that the platform cannot use.
struct SettingFault {
  /// The name of the member of LinuxSettings, such as "storeEndpoint".
  std::string setting;
  /// A sentence without a password, such as "\"https://store/path\" has a path or query; ...".
  std::string reason;
};

class QX_EXPORT LinuxPlatform {
 public:
  /// Yields one fault for each setting that cannot be used. It looks at files and sends nothing. A
  /// host calls it before it makes the platform:
  ///
  ///     for (const qx::SettingFault& fault : qx::LinuxPlatform::check(settings))
  ///       std::cerr << fault.setting << ": " << fault.reason << "\n";
  static std::vector<SettingFault> check(const LinuxSettings& settings);

  /// Writes each fault of the settings to the logger in them, at level 5. Operations that need a
  /// setting that cannot be used fail later.
  explicit LinuxPlatform(LinuxSettings settings = {});
  ~LinuxPlatform();
  LinuxPlatform(const LinuxPlatform&) = delete;
  LinuxPlatform& operator=(const LinuxPlatform&) = delete;

  /// The mediator, at which the host registers its answers.
  Mediator& mediator();
  NotificationCentre& notifications();
  /// The seams, for Platform::install.
  Platform seams();

  /// Runs the main queue on the calling thread until stopMainQueue().
  void runMainQueue();
  /// Ends runMainQueue() after the work that is in the queue now. May be called from any thread,
  /// also by work on the main queue, and before runMainQueue().
  void stopMainQueue();

  /// Ends each transfer with an error, runs the remaining work of all queues except the main queue,
  /// whose work it drops, and joins the threads. From then on the seams do nothing. The destructor
  /// does the same. A second call does nothing. The host calls it from its main thread, after
  /// runMainQueue() has returned.
  void shutDown();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace qx
