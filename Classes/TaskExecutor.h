// One upload attempt of one task, by the object-store route or the server route.
//
//     waiting ──► credentials ──► transfer ──► itemId ──► reported
//        │             │              │                      ▲
//        └─────────────┴──────────────┴──── a failure ───────┘
//
// cancel() ends an attempt in each of the first three stages. In the fourth the object has arrived.
//
// Threads: execute() may be called from any thread and returns at once. The report comes once:
// object-store outcomes on the main queue; everything before the transfer on the thread where it is
// noticed (execute()'s own, or "com.aws.get.config"); server-route outcomes on the networking
// layer's thread; a success whose item id the host is asked for, on the thread on which the host
// answers or drops the question; that of a cancelled attempt on the main queue, or inside
// execute(). It may come before execute() returns. Ownership: shared by queue and scheduler; keeps
// itself alive until it has reported.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Credentials.h"
#include "Classes/Task.h"
#include "Classes/UploadEvents.h"
#include "Classes/UploadTokenModel.h"
#include "platform/Cancellable.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"
#include "platform/Platform.h"

namespace qx {

class TaskExecutor : public std::enable_shared_from_this<TaskExecutor> {
 public:
  /// (the executor itself, URL, status, item id). On a failure the item id is 0 and the URL absent,
  /// except after a failed object-store transfer: there it is the URL the object would have had.
  using Complete = std::function<void(const std::shared_ptr<TaskExecutor>& executor,
                                      const std::optional<std::string>& url,
                                      const AWSCallbackStatus& status, std::int64_t itemId)>;

  /// Who hears of the end of the attempt besides `complete`: each once, in this order, on the
  /// thread of the report. Each may be empty.
  struct Observers {
    /// The queue: the slot is free.
    std::function<void()> freeSlot;
    /// The scheduler: the storage is brought up to date.
    Complete record;
    // Then `complete`.
    /// The scheduler: stored tasks may follow.
    std::function<void()> follow;
    /// The queue, or the list of direct uploads: the attempt is over.
    std::function<void()> over;
  };

  /// All that is given must outlive the attempt.
  TaskExecutor(const Platform& platform, Credentials& credentials, UploadEvents& events,
               UploadKind kind, std::shared_ptr<Task> task);

  /// Starts the attempt. At most once per executor.
  void execute();
  /// Ends the attempt: it reports the failure "[Error] cancelled". Nothing happens once the object
  /// has arrived, or after the report. From any thread.
  void cancel();
  /// The report was that of a cancelled attempt.
  bool wasCancelled() const { return cancelled_; }

  /// How an attempt ends: calls the observers in their order and lets go of them. The attempt
  /// itself calls it, once.
  void deliver(const std::optional<std::string>& url, const AWSCallbackStatus& status,
               std::int64_t itemId);

  /// A locally made, roughly unique item id: the user id modulo 1000, then the time in seconds
  /// without its three leading digits.
  static std::int64_t generataItemId(const Platform& platform);

  // What runs is set before execute(); uploadTime is a result.
  const std::shared_ptr<Task> task;
  const UploadKind kind;
  /// May be empty. Cleared after a report for which the host was asked for an item id.
  Complete complete;
  Observers observers;
  /// Seconds from the start of the transfer to its result. Absent until then, and after a failure
  /// of the server route.
  std::optional<double> uploadTime;
  /// Only the server route uses it.
  std::shared_ptr<QXNetworkingManager> uploadWorker;

 private:
  enum class Stage { waiting, credentials, transfer, itemId, reported };

  /// Takes the step to the next stage. False when the attempt was cancelled meanwhile: whoever
  /// wanted the step returns.
  bool enter(Stage next);
  /// Keeps the handle of the transfer under way, for cancel().
  void keep(std::shared_ptr<Cancellable> transfer);
  /// Why the bytes of a stored task are not there, if it is a symbolic link in place of their file.
  void logRefusedLink() const;
  void takeRoute(const Data& data, const std::optional<UploadTokenModel>& model);
  void uploadToObjectStore(const Data& data, const std::optional<UploadTokenModel>& model);
  void uploadToServer(const Data& data, const std::optional<UploadTokenModel>& model);
  void resolveItemId(const std::string& url);
  void report(const std::optional<std::string>& url, const AWSCallbackStatus& status,
              std::int64_t itemId);
  const Platform& platform_;
  Credentials& credentials_;
  UploadEvents& events_;
  std::atomic<bool> cancelled_ = false;
  Mutex lock_;
  Stage stage_ QX_GUARDED_BY(lock_) = Stage::waiting;
  std::shared_ptr<Cancellable> transfer_ QX_GUARDED_BY(lock_);
};

/// An executor for a background upload, with a networking manager of its own and no completion.
using ExecutorFactory = std::function<std::shared_ptr<TaskExecutor>(std::shared_ptr<Task>)>;

/// The SHA-1 of the bytes as 40 lower-case hexadecimal characters.
std::string sha1(Digests& digests, const Data& bytes);

}  // namespace qx
