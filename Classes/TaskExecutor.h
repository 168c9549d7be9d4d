// One upload attempt of one task, by the object-store route or the server route.
//
// Threads: execute() may be called from any thread and returns at once. The report comes once:
// object-store outcomes on the main queue; everything before the transfer on the thread where it is
// noticed (execute()'s own, or "com.aws.get.config"); server-route outcomes on the networking
// layer's thread; a success whose item id the host is asked for, on the thread on which the host
// answers or drops the question. It may come before execute() returns.
// Ownership: shared by queue and scheduler; keeps itself alive until it has reported.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSCallbackStatus.h"
#include "Classes/Credentials.h"
#include "Classes/Task.h"
#include "Classes/UploadTokenModel.h"
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

  /// `platform` and `credentials` must outlive the attempt.
  TaskExecutor(const Platform& platform, Credentials& credentials, std::shared_ptr<Task> task);

  /// Starts the attempt. At most once per executor.
  void execute();

  /// A locally made, roughly unique item id: the user id modulo 1000, then the time in seconds
  /// without its three leading digits.
  static std::int64_t generataItemId(const Platform& platform);

  // What runs is set before execute(); uploadTime is a result.
  const std::shared_ptr<Task> task;
  /// May be empty. Cleared after a report for which the host was asked for an item id.
  Complete complete;
  /// Seconds from the start of the transfer to its result. Absent until then, and after a failure
  /// of the server route.
  std::optional<double> uploadTime;
  /// Only the server route uses it.
  std::shared_ptr<QXNetworkingManager> uploadWorker;

 private:
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
};

/// An executor with a networking manager of its own and no completion.
using ExecutorFactory = std::function<std::shared_ptr<TaskExecutor>(std::shared_ptr<Task>)>;

/// The SHA-1 of the bytes as 40 lower-case hexadecimal characters.
std::string sha1(Digests& digests, const Data& bytes);

}  // namespace qx
