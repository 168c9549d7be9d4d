// The whole platform on Linux: what a host makes first, configures, and installs.
//
//     qx::LinuxPlatform platform({.logger = &myLogger, .trackingEvents = &myTracker});
//     platform.mediator().answer("Account_GetUserId", [] { return qx::Value("42"); });
//     ...
//     qx::Target_Uploader::registerWith(platform.mediator());
//     qx::Platform::install(platform.seams());
//     platform.runMainQueue();
//
// Threads: made and installed by one thread. It owns the HTTP engine's thread, the threads of the
// queues and timers, and the reachability thread; they end with it.
// Ownership: must outlive all work of the library; a host keeps it until the process ends.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http/MessageSignature.h"
#include "platform/Platform.h"
#include "platforms/shared/Mediator.h"

namespace qx {

struct LinuxSettings {
  /// The host's logger; none: log records go nowhere.
  QXLogger* logger = nullptr;
  /// The host's item-tag tracker; none: tagging goes nowhere.
  QXTrackingEvents* trackingEvents = nullptr;
  /// Where the user's documents live. Absent: $XDG_DATA_HOME/qxawsuploader, else
  /// ~/.local/share/qxawsuploader.
  std::optional<std::string> documentsDirectory = {};
  /// The object store's global endpoint.
  std::string storeEndpoint = "https://s3.amazonaws.com";
  /// A transfer to or from the store has 30 seconds, its further attempts included. False: they are
  /// counted from its start, so that what takes longer fails however much has moved. True: only
  /// time in which nothing moves counts, so that a slow line succeeds and a dead one still ends.
  bool resourceTimeoutCountsStandstillOnly = false;
  /// PEM file of the certificate authorities to trust; absent: the system's.
  std::optional<std::string> caFile = {};
  /// HTTP proxy for every request ("http://proxy:3128"), and the hosts to reach without it
  /// (comma-separated). Absent: no proxy; the environment is not read.
  std::optional<std::string> proxy = {};
  std::optional<std::string> noProxy = {};
  /// Host names or addresses; the network counts as reachable when there is a route towards one of
  /// them, loopback included. Empty: when an interface other than loopback is up with an address.
  std::vector<std::string> reachabilityHosts = {};
  /// Hands work to the host's own main loop, which runs it one by one on the main thread. Absent:
  /// the host calls runMainQueue().
  std::function<void(Work)> mainQueuePoster = {};
  /// Signs backend messages; absent: hmacMessageSignature.
  MessageSigner messageSigner = {};
  /// Texts for "SUCCESS" and "INTERNAL_ERROR" in the host's language; absent: English.
  std::function<std::string(std::string_view)> localisedText = {};
  /// Takes the lines that the library prints; none: they go to standard output.
  Console* console = nullptr;
  /// For a host under development: its usual mistakes (an unknown action, a missing key, an answer
  /// of the wrong type, a main queue that nobody runs, ...) are one line each on standard error.
  bool developer = false;
};

/// A setting that the platform cannot use.
struct SettingFault {
  /// The member of LinuxSettings, "storeEndpoint".
  std::string setting;
  /// A sentence without any password: "\"https://store/path\" has a path or query; ...".
  std::string reason;
};

class LinuxPlatform {
 public:
  /// The settings that cannot be used, one fault each; empty when all can. Looks at files, sends
  /// nothing. A host asks before it makes the platform:
  ///
  ///     for (const qx::SettingFault& fault : qx::LinuxPlatform::check(settings))
  ///       std::cerr << fault.setting << ": " << fault.reason << "\n";
  static std::vector<SettingFault> check(const LinuxSettings& settings);

  /// Writes each fault of the settings to their logger, at level 5, and is made all the same:
  /// what needs a setting that cannot be used fails when it is needed.
  explicit LinuxPlatform(LinuxSettings settings = {});
  ~LinuxPlatform();
  LinuxPlatform(const LinuxPlatform&) = delete;
  LinuxPlatform& operator=(const LinuxPlatform&) = delete;

  /// The mediator, for registering the host's answers.
  Mediator& mediator();
  NotificationCentre& notifications();
  /// The seams, for Platform::install.
  Platform seams();

  /// Runs the main queue on the calling thread until stopMainQueue().
  void runMainQueue();
  /// From any thread, also from work on the main queue. A stop before the run makes it return at
  /// once when the queue is empty.
  void stopMainQueue();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace qx
