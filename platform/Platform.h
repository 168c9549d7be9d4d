// All seams together: everything that the library reaches outside itself.
//
//     qx::LinuxPlatform platform;
//     qx::Platform::install(platform.seams());
//     const double now = qx::Platform::current().clock.now();
//
// Threads: install the platform once, before the first action. After that any thread may read it.
// Ownership: the host owns the seams. They must live until the process ends, because the library's
// shared instances, queues and timer do.
#pragma once

#include <type_traits>

#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Digests.h"
#include "platform/Dispatch.h"
#include "platform/Export.h"
#include "platform/Files.h"
#include "platform/Formats.h"
#include "platform/Host.h"
#include "platform/Networking.h"
#include "platform/ObjectStore.h"

namespace qx {

struct QX_EXPORT Platform {
  QXMediator& mediator;
  QXLogger& logger;
  NotificationCentre& notifications;
  QXTrackingEvents& trackingEvents;
  MessageClients& messageClients;
  UploadClients& uploadClients;
  QXNetworkingReachabilityTool& reachability;
  ObjectStore& objectStore;
  Files& files;
  PropertyLists& propertyLists;
  Json& json;
  ImageHeaders& imageHeaders;
  Digests& digests;
  Dispatch& dispatch;
  Random& random;
  Uuid& uuid;
  Clock& clock;
  Console& console = Console::standardOutput();

  /// The same seams, but with each of `replacements` in place of every seam that it implements. If
  /// several of them implement a seam, the last one counts. A host wraps one seam like this:
  ///
  ///     const qx::Platform original = linuxPlatform.seams();
  ///     CountingFiles files(original.files);
  ///     qx::Platform::install(original.with(files));
  template <typename... Replacements>
  Platform with(Replacements&... replacements) const;

  /// Makes `platform` the platform of the library. Installing a second platform is fatal, because
  /// shared instances may already use the first one.
  static void install(const Platform& platform);
  /// The installed platform. Fatal when no platform is installed.
  static const Platform& current();
};

template <typename... Replacements>
Platform Platform::with(Replacements&... replacements) const {
  static_assert((std::is_polymorphic_v<Replacements> && ...), "pass the objects, not pointers");
  const auto pick = [&]<typename Seam>(Seam& original) -> Seam& {
    Seam* chosen = &original;
    const auto consider = [&chosen](auto& replacement) {
      if constexpr (std::is_base_of_v<Seam, std::remove_reference_t<decltype(replacement)>>) {
        chosen = &replacement;
      }
    };
    (consider(replacements), ...);
    return *chosen;
  };
  return {.mediator = pick(mediator),
          .logger = pick(logger),
          .notifications = pick(notifications),
          .trackingEvents = pick(trackingEvents),
          .messageClients = pick(messageClients),
          .uploadClients = pick(uploadClients),
          .reachability = pick(reachability),
          .objectStore = pick(objectStore),
          .files = pick(files),
          .propertyLists = pick(propertyLists),
          .json = pick(json),
          .imageHeaders = pick(imageHeaders),
          .digests = pick(digests),
          .dispatch = pick(dispatch),
          .random = pick(random),
          .uuid = pick(uuid),
          .clock = pick(clock),
          .console = pick(console)};
}

}  // namespace qx
