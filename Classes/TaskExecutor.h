// One upload attempt of one task, by the object-store route or by the server route.
//
//     waiting ──► credentials ──► transfer ──► itemId ──► reported
//        │             │              │                      ▲
//        └─────────────┴──────────────┴──── a failure ───────┘
//
// cancel() ends an attempt in each of the first three stages. In the fourth stage the object has
// arrived.
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
#include <cstddef>
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
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"
#include "platform/ObjectStore.h"
#include "platform/Platform.h"

namespace qx {

class TaskExecutor : public std::enable_shared_from_this<TaskExecutor> {
 public:
  /// Called with (the executor itself, URL, status, item id). After a failure the item id is 0 and
  /// the URL is absent, except after a failed object-store transfer: then it is the URL that the
  /// object would have had.
  using Complete = std::function<void(const std::shared_ptr<TaskExecutor>& executor,
                                      const std::optional<std::string>& url,
                                      const AWSCallbackStatus& status, std::int64_t itemId)>;

  /// The observers of the end of the attempt besides `complete`. Each is called once, in this
  /// order, on the thread of the report. Each may be empty.
  struct Observers {
    /// The queue observes that the slot is free.
    std::function<void()> freeSlot;
    /// The scheduler updates the storage.
    Complete record;
    // `complete` is called here.
    /// The scheduler lets further stored tasks follow.
    std::function<void()> follow;
    /// The queue, or the list of direct uploads, observes that the attempt is over.
    std::function<void()> over;
  };

  /// All arguments must outlive the attempt.
  TaskExecutor(const Platform& platform, Credentials& credentials, UploadEvents& events,
               UploadKind kind, std::shared_ptr<Task> task);

  /// Starts the attempt. Call it at most once per executor.
  void execute();
  /// Ends the attempt, which then reports the failure "[Error] cancelled". Does nothing when the
  /// object has arrived or the attempt has reported. May be called from any thread.
  void cancel();
  /// True when the attempt has reported that it was cancelled.
  bool wasCancelled() const { return cancelled_; }

  /// Ends the attempt: calls the observers in their order and drops them. The attempt itself calls
  /// it, once.
  void deliver(const std::optional<std::string>& url, const AWSCallbackStatus& status,
               std::int64_t itemId);

  /// Makes an item id that is unique with a high probability: the user id modulo 1000, then the
  /// time in seconds without its three leading digits.
  static std::int64_t generataItemId(const Platform& platform);

  // These are set before execute(), except uploadTime, which is a result.
  const std::shared_ptr<Task> task;
  const UploadKind kind;
  /// May be empty. It is cleared after a report for which the host was asked for an item id.
  Complete complete;
  Observers observers;
  /// The seconds from the start of the transfer to its result. Absent until then, and after a
  /// failure of the server route.
  std::optional<double> uploadTime;
  /// Only the server route uses this.
  std::shared_ptr<QXNetworkingManager> uploadWorker;

 private:
  enum class Stage { waiting, credentials, transfer, itemId, reported };

  /// Goes on to the next stage. False when the attempt has been cancelled meanwhile; the caller
  /// then returns.
  bool enter(Stage next);
  /// Keeps the handle of the running transfer for cancel().
  void keep(std::shared_ptr<Cancellable> transfer);
  /// Logs the reason when the bytes of a stored task cannot be read because a symbolic link takes
  /// the place of their file.
  void logRefusedLink() const;
  void takeRoute(const Data& data, const std::optional<UploadTokenModel>& model);
  void uploadToObjectStore(const Data& data, const std::optional<UploadTokenModel>& model);
  void uploadToServer(const Data& data, const std::optional<UploadTokenModel>& model);
  /// Calls `send` on the hand-over queue, unless the attempt is cancelled before.
  void handOver(Work send);
  void sendToObjectStore(AWSS3TransferUtility& utility, const Data& data,
                         const UploadTokenModel& token);
  void sendToServer(const QXNetworkingUploadRequest& request, std::size_t size,
                    const std::string& url);
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

/// Makes an executor for a background upload, with a networking manager of its own and no
/// completion.
using ExecutorFactory = std::function<std::shared_ptr<TaskExecutor>(std::shared_ptr<Task>)>;

/// The SHA-1 of the bytes in 40 lower-case hexadecimal digits.
std::string sha1(Digests& digests, const Data& bytes);

}  // namespace qx
