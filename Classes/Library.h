// One library above one platform: its long-lived parts, made in the order in which they need each
// other.
//
//     qx::Library library(platform.seams());   // In a test: as many as it likes.
//     qx::Target_Uploader target(library);
//
// A host uses Library::shared(), which Target_Uploader takes by itself.
//
// Threads: the parts say for themselves.
// Ownership: requests and uploads that are under way use the parts, so a library is destroyed when
// nothing is under way any more; the shared one never is.
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
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// The library above the installed platform; made on first use, fatal when no platform is
  /// installed.
  static Library& shared();

  /// A scheduler for a user, as AWSConfigure makes one with each identity that it applies.
  std::shared_ptr<TaskScheduler> makeScheduler(const std::string& userId);

  // The order of the members is the order of their construction. The functions that the earlier
  // ones are given reach up to later ones; none is called before the library is whole, but for the
  // queue's limit, which needs `configure` alone.
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
