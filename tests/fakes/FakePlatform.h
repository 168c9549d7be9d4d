// All fakes together, as the platform of a unit test.
//
//     qx::FakePlatform platform;   // Installed once per process: a test runs in its own.
//     platform.install();
//     platform.mediator.signIn("u1", "token", "https://backend.test");
//     ... platform.dispatch.runUntilIdle(); platform.clock.advance(60);
//
// Threads: as each fake says. Ownership: the library's shared instances hold on to an installed
// platform until the process ends, so the test makes it static or never destroys it;
// FakePlatform::installed() does that.
#pragma once

#include "fakes/FakeClock.h"
#include "fakes/FakeDispatch.h"
#include "fakes/FakeHost.h"
#include "fakes/FakeMediator.h"
#include "fakes/FakeMessageClients.h"
#include "fakes/FakeObjectStore.h"
#include "fakes/FakeUploadClients.h"
#include "fakes/FakeValues.h"
#include "fakes/MemoryFiles.h"
#include "fakes/SimpleFormats.h"
#include "platform/Platform.h"

namespace qx {

class FakePlatform {
 public:
  FakePlatform() { mediator.setProduction(false); }
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  /// A platform of fakes that is installed and lives until the process ends; call it once.
  static FakePlatform& installed() {
    // Never destroyed: shared instances outlive every static of the test.
    auto* platform = new FakePlatform;
    platform->install();
    return *platform;
  }

  void install() { Platform::install(seams()); }
  Platform seams() {
    return {.mediator = mediator,
            .logger = logger,
            .notifications = notifications,
            .trackingEvents = trackingEvents,
            .messageClients = messageClients,
            .uploadClients = uploadClients,
            .reachability = reachability,
            .objectStore = objectStore,
            .files = files,
            .propertyLists = propertyLists,
            .json = json,
            .imageHeaders = imageHeaders,
            .sha1 = sha1,
            .dispatch = dispatch,
            .random = random,
            .uuid = uuid,
            .clock = clock};
  }

  FakeClock clock;
  FakeDispatch dispatch{clock};
  /// Outside production, nobody signed in.
  FakeMediator mediator;
  FakeLogger logger;
  FakeNotificationCentre notifications;
  FakeTrackingEvents trackingEvents;
  FakeMessageClients messageClients;
  FakeUploadClients uploadClients;
  FakeReachability reachability;
  FakeObjectStore objectStore;
  MemoryFiles files;
  SimplePropertyLists propertyLists;
  SimpleJson json;
  FakeImageHeaders imageHeaders;
  SimpleSha1 sha1;
  FakeRandom random;
  FakeUuid uuid;
};

}  // namespace qx
