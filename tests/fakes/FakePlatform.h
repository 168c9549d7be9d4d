// All fakes together, as the platform of a unit test.
//
//     qx::FakePlatform& platform = qx::FakePlatform::kept();
//     platform.mediator.signIn("u1", "token", "https://backend.test");
//     platform.install();   // Once per process; then the library's actions run on it.
//     ... platform.dispatch.runUntilIdle(); platform.clock.advance(60);
//
// Threads: as each fake says. kept() and installed() belong to the test's thread. Ownership: a
// library and its uploads refer to the platform, Library::shared() until the process ends.
#pragma once

#include <memory>
#include <vector>

#include "fakes/FakeClock.h"
#include "fakes/FakeDispatch.h"
#include "fakes/FakeHost.h"
#include "fakes/FakeMediator.h"
#include "fakes/FakeMessageClients.h"
#include "fakes/FakeObjectStore.h"
#include "fakes/FakeUploadClients.h"
#include "fakes/FakeValues.h"
#include "fakes/MemoryFiles.h"
#include "fakes/SimpleDigests.h"
#include "fakes/SimpleFormats.h"
#include "platform/Platform.h"

namespace qx {

class FakePlatform {
 public:
  FakePlatform() {
    mediator.setProduction(false);
    files.setClock(clock);
  }
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;

  /// Makes a platform of fakes that lives until the process ends, because uploads that a test
  /// leaves under way may still refer to it.
  static FakePlatform& kept() {
    static auto& platforms = *new std::vector<std::unique_ptr<FakePlatform>>;
    platforms.push_back(std::make_unique<FakePlatform>());
    return *platforms.back();
  }
  /// Makes a kept platform and installs it. Call it once per process.
  static FakePlatform& installed() {
    FakePlatform& platform = kept();
    platform.install();
    return platform;
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
            .digests = digests,
            .dispatch = dispatch,
            .random = random,
            .uuid = uuid,
            .clock = clock};
  }

  FakeClock clock;
  FakeDispatch dispatch{clock};
  /// The environment is no production environment, and nobody is signed in.
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
  SimpleDigests digests;
  FakeRandom random;
  FakeUuid uuid;
};

}  // namespace qx
