#include "Classes/Library.h"

#include <utility>

namespace qx {

Library::Library(const Platform& seams)
    : platform(seams),
      tracking(platform),
      events(platform.dispatch, platform.clock),
      idle(events, [this] { return uploadControl.nothingWaits(); }),
      storages(platform),
      // The current scheduler is read at each tick, so that a tick always serves the identity that
      // was applied last.
      retryTimer(platform.dispatch, platform.clock,
                 [this] {
                   if (const auto current = configure.scheduler.load()) current->retryLocalTask();
                 }),
      configure(platform, tracking, events, idle, retryTimer,
                [this](const std::string& userId) { return makeScheduler(userId); }),
      taskQueue(TaskQueue::make(
          platform.reachability, [this] { return configure.maxBackgroundConcurrentCount.load(); },
          [this] { idle.changed(); })),
      uploader(platform, configure, tracking, events),
      directUploads(idle),
      downloader(platform, configure, tracking, events, idle),
      uploadControl({.platform = platform,
                     .events = events,
                     .storages = storages,
                     .configure = configure,
                     .retryTimer = retryTimer,
                     .queue = *taskQueue,
                     .directUploads = directUploads,
                     .idle = idle}) {}

Library::~Library() {
  // An upload that waits in the queue holds the queue.
  taskQueue->reset();
}

std::shared_ptr<TaskScheduler> Library::makeScheduler(const std::string& userId) {
  return TaskScheduler::make(
      {.tracking = tracking,
       .events = events,
       .retryTimer = retryTimer,
       .storages = storages,
       .queue = taskQueue,
       .makeExecutor =
           [this](std::shared_ptr<Task> task) { return uploader.makeExecutor(std::move(task)); },
       .report =
           [this](const std::string& scope, const std::optional<std::string>& url,
                  const AWSParameterMap& extra, const std::optional<Error>& error) {
             configure.reportBackgroundUpload(scope, url, extra, error);
           }},
      userId, configure.resumeStoredTasks ? StoredTasks::resume : StoredTasks::startEmpty);
}

Library& Library::shared() {
  // The library is never destroyed, because queues, timers and the completions of requests use it
  // until the process ends.
  static Library& library = *new Library(Platform::current());
  return library;
}

AWSConfigure& AWSConfigure::shared() {
  return Library::shared().configure;
}

const std::shared_ptr<TaskQueue>& TaskQueue::shared() {
  return Library::shared().taskQueue;
}

RetryTimer& RetryTimer::shared() {
  return Library::shared().retryTimer;
}

}  // namespace qx
