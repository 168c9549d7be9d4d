// One library on one platform: its long-lived parts, made in the order in which they need each
// other.
//
//     qx::Library library(platform.seams());   // In a test: as many as it likes.
//     qx::Target_Uploader target(library);
//
// A host uses Library::shared(), which Target_Uploader takes by itself.
//
// Threads: each part says which threads may use it.
// Ownership: running requests and uploads use the parts, so a library is destroyed only when
// nothing is under way. The shared library is never destroyed.
#pragma once

#include <memory>
#include <string>

#include "Classes/AWSConfigure.h"
#include "Classes/AWSDownloader.h"
#include "Classes/AWSTracking.h"
#include "Classes/AWSUploader.h"
#include "Classes/DirectUploads.h"
#include "Classes/IdleWatch.h"
#include "Classes/RetryTimer.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "Classes/UploadControl.h"
#include "Classes/UploadEvents.h"
#include "Classes/UserTaskStorage.h"
#include "platform/Platform.h"

namespace qx {

class Library {
 public:
  /// The seams must outlive the library.
  explicit Library(const Platform& seams);
  /// Lets go of the background uploads that wait; what is stored of them stays stored.
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// The library on the installed platform. It is made on first use; that is fatal when no platform
  /// is installed.
  static Library& shared();

  /// Makes a scheduler for a user, as AWSConfigure does with each identity that it applies.
  std::shared_ptr<TaskScheduler> makeScheduler(const std::string& userId);

  // The members are constructed in this order. Earlier members get functions that use later ones.
  // None of these functions is called before the library is complete, except the limit of the
  // queue, which needs only `configure`.
  const Platform platform;
  const AWSTracking tracking;
  UploadEvents events;
  IdleWatch idle;
  UserTaskStorages storages;
  RetryTimer retryTimer;
  AWSConfigure configure;
  const std::shared_ptr<TaskQueue> taskQueue;
  AWSUploader uploader;
  DirectUploads directUploads;
  AWSDownloader downloader;
  UploadControl uploadControl;
};

}  // namespace qx
