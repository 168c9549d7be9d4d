// The events of uploads and downloads, for the hosts that observe them.
//
//     UploadEvents events(platform);
//     events.observe([](const Dictionary& event) { print(event); });
//     events.queued(*task);
//
// docs/upload-queue.md lists the events and their keys.
//
// Threads: every operation may be called from any thread. Observers are called on the serial queue
// "com.aws.events", in the order in which the events were told. While nobody observes, telling an
// event only reads one atomic flag.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Task.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"

namespace qx {

/// The way an upload came in: by "Action_Upload:", or through the queue.
enum class UploadKind { direct, background };

/// The text "direct" or "background".
std::string_view kindText(UploadKind kind);

/// The extra value that holds the host's tag of an upload.
inline constexpr std::string_view kTagExtra = "tag";

class UploadEvents {
 public:
  using Observer = std::function<void(const Dictionary&)>;
  using ProgressBlock = std::function<void(const TransferProgress&)>;

  /// Both arguments must outlive the instance.
  UploadEvents(Dispatch& dispatch, Clock& clock);

  /// Adds an observer, which stays until the process ends.
  void observe(Observer observer);
  bool observed() const { return observed_.load(std::memory_order_relaxed); }
  /// Runs `work` on the queue of the events, after all events that have been told.
  void afterEvents(Work work) { enqueue(std::move(work)); }

  void accepted(UploadKind kind, const Task& task, std::size_t size, bool stored,
                const std::optional<Error>& whyNotStored);
  void queued(const Task& task);
  /// The first attempt is 1.
  void started(UploadKind kind, const Task& task, std::int64_t attempt);
  /// Makes a block that tells how many bytes of a transfer have been sent. Empty while nobody
  /// observes.
  ProgressBlock sent(UploadKind kind, const std::shared_ptr<Task>& task);

  struct FailedAttempt {
    std::int64_t number = 1;
    /// True when the failure is counted, so that it brings the upload closer to being given up.
    bool counted = false;
    bool stored = false;
    bool cancelled = false;
    /// The time of the next attempt in seconds since 1970. Nothing when the upload is not tried
    /// again by itself.
    std::optional<double> nextTry = {};
  };
  void attemptFailed(UploadKind kind, const Task& task, const AWSCallbackStatus& status,
                     const FailedAttempt& attempt);
  void uploaded(UploadKind kind, const Task& task, const std::optional<std::string>& url,
                std::int64_t itemId);
  void givenUp(const Task& task, const AWSCallbackStatus& status, std::int64_t attempts);
  void cancelled(const Task& task);
  void dropped(const Task& task);
  void dropFailed(const Task& task, const Error& error);

  /// Told when the report of an item's image to the backend has ended.
  void imageReported(const AWSParameterMap& extra, std::int64_t itemId, const std::string& url,
                     const std::optional<Error>& error);

  /// Makes a block like sent() for the bytes of a download.
  ProgressBlock received(const std::string& url);
  void downloaded(const std::string& url, const std::string& path);
  /// `completed`: true when the host's "complete" is called.
  void downloadFailed(const std::string& url, const Error& error, bool completed,
                      int backendStatus = 0);

  void credentialsFetched(const std::vector<std::string>& scopes);
  void credentialsRefused(const std::optional<Error>& error, const std::string& text);
  /// Told when the stored uploads cannot be opened.
  void storeUnavailable(const Error& error);

 private:
  void tell(std::string_view name, Dictionary event);
  void enqueue(Work work);
  /// Runs the pending work, on the queue.
  void runPending();
  ProgressBlock progressBlock(std::string_view name, Dictionary subject);

  Clock& clock_;
  const std::shared_ptr<DispatchQueue> queue_;
  std::atomic<bool> observed_ = false;
  Mutex lock_;
  /// The observers. The list is replaced as a whole.
  std::shared_ptr<const std::vector<Observer>> observers_ QX_GUARDED_BY(lock_);
  std::vector<Work> pending_ QX_GUARDED_BY(lock_);
  /// True when runPending() is on its way.
  bool scheduled_ QX_GUARDED_BY(lock_) = false;
};

}  // namespace qx
