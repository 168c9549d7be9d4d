// Everything the library reaches outside itself, in one place.
//
// Threads: install once, before the first action; after that it is read from any thread.
// Ownership: the host owns the seams; they must live until the process ends, for the library's
// shared instances, queues and timer do.
#pragma once

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

  /// Makes `platform` the one that the library uses. Installing a second time is fatal: shared
  /// instances may already hold on to the first.
  static void install(const Platform& platform);
  /// The installed platform; fatal when there is none yet.
  static const Platform& current();
};

}  // namespace qx
