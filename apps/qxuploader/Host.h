// The host application: makes the platform, answers the library's questions, hears its reports, and
// sends its actions.
//
// Threads: made by the main thread, which then calls run(). What the library reports arrives on any
// thread and goes to the HostListener there.
// Ownership: it lives until the process ends, as the library's queues and timer do.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HostAnswers.h"
#include "HostSeams.h"
#include "Settings.h"
#include "platform/Mutex.h"
#include "platform/Platform.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx::app {

/// What the library tells the host besides its callbacks. Every operation: any thread.
class HostListener {
 public:
  virtual ~HostListener() = default;
  virtual void onLog(const LogRecord&) {}
  /// A line that the library prints.
  virtual void onPrint(const std::string& /*line*/) {}
  virtual void onTracking(const Dictionary& /*parameters*/, const std::string& /*name*/) {}
  /// `call` is "tagItem" or "updateItem".
  virtual void onTag(std::string_view /*call*/, const Dictionary& /*arguments*/) {}
  virtual void onUnknownAction(std::string_view /*action*/) {}
  /// Bytes of the download that runs.
  virtual void onDownloadBytes(const TransferProgress&) {}
  /// A message to the backend has ended.
  virtual void onMessageEnded(const APIRequest&, const std::optional<Error>& /*error*/) {}
};

class Host : private QXLogger, private QXTrackingEvents, private Console {
 public:
  /// Installs the platform; only one host can be made in a process. `listener` must live as long as
  /// the host.
  Host(const Settings& settings, const std::string& token, HostListener& listener);

  HostAnswers& answers() { return answers_; }
  SwitchableReachability& reachability() { return reachability_; }
  /// Messages to the backend under way.
  std::int64_t messagesUnderWay() const { return messages_.underWay(); }
  /// The HTTP status behind an error of the library when the backend's answer was the reason: the
  /// library passes on the backend's text alone. 0 when it was not.
  int backendStatus(const Error& error);
  const Platform& seams() const { return seams_; }
  /// Announces that the signed-in user changed.
  void postUserChanged();

  /// "Action_Upload:" and the like, on the calling thread.
  void perform(const std::string& action, const Dictionary& parameters);
  /// "Action_SetUp:" as this program's commands send it.
  void setUp(bool serverResize, bool resumeStoredTasks);

  /// Runs `work` on the main thread.
  void post(Work work);
  /// Calls `tick` on the main thread every `seconds` until the timer is destroyed.
  std::unique_ptr<Timer> every(double seconds, Work tick);
  /// Runs the main queue until stop().
  void run();
  void stop();

 private:
  int threshold() override;
  void write(const LogRecord& record) override;
  void printLine(std::string_view line) override;
  void tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
               const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
               const std::optional<Dictionary>& fields) override;
  void updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                  const std::optional<std::vector<std::string>>& tags,
                  const std::optional<Dictionary>& fields) override;
  std::optional<Dictionary> anyCodable(const Dictionary& values) override;

  HostListener& listener_;
  Mutex mutex_;
  std::optional<Error> lastBackendError_ QX_GUARDED_BY(mutex_);
  HostAnswers answers_;
  LinuxPlatform platform_;
  SwitchableReachability reachability_;
  ObservedStore store_;
  CountedMessages messages_;
  WatchedFiles files_;
  Platform seams_;
};

/// The platform settings that follow from the program's.
LinuxSettings linuxSettings(const Settings& settings);
/// The first setting that the platform cannot use, where it came from and why; empty when it can
/// use all. What is wrong with the documents directory is told when it is opened.
std::string faultOfPlatform(const Settings& settings);

}  // namespace qx::app
