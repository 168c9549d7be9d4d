// Everything the library reaches outside itself, in one place.
//
// Threads: install once, before the first action; after that it is read from any thread.
// Ownership: the host owns the seams; they must live until the process ends, for the library's
// shared instances, queues and timer do.
#pragma once

#include <type_traits>

#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Digests.h"
#include "platform/Dispatch.h"
#include "platform/Files.h"
#include "platform/Formats.h"
#include "platform/Host.h"
#include "platform/Networking.h"
#include "platform/ObjectStore.h"

namespace qx {

struct Platform {
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

  /// The same seams with each of `replacements` in the place of every seam that it implements, the
  /// last one if there are several for it. A host that wraps one seam:
  ///
  ///     const qx::Platform original = linuxPlatform.seams();
  ///     CountingFiles files(original.files);
  ///     qx::Platform::install(original.with(files));
  template <typename... Replacements>
  Platform with(Replacements&... replacements) const;

  /// Makes `platform` the one that the library uses. Installing a second time is fatal: shared
  /// instances may already hold on to the first.
  static void install(const Platform& platform);
  /// The installed platform; fatal when there is none yet.
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
