// The host application: it makes the platform, answers the library's questions, gets the library's
// reports and events, and sends its actions.
//
// Threads: the main thread makes the host and then calls run(). Reports of the library arrive on
// any thread and go to the HostListener there. Events arrive on the main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "HostAnswers.h"
#include "ListedTask.h"
#include "Settings.h"
#include "SwitchableReachability.h"
#include "platform/Platform.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx::app {

/// The reports of the library besides its callbacks. Every operation except onEvent() may be called
/// on any thread.
class HostListener {
 public:
  virtual ~HostListener() = default;
  virtual void onLog(const LogRecord&) {}
  /// The library has printed a line.
  virtual void onPrint(const std::string& /*line*/) {}
  virtual void onTracking(const Dictionary& /*parameters*/, const std::string& /*name*/) {}
  /// `call` is "tagItem" or "updateItem".
  virtual void onTag(std::string_view /*call*/, const Dictionary& /*arguments*/) {}
  virtual void onUnknownAction(std::string_view /*action*/) {}
  /// Called on the main thread with the events of the upload queue, in the order in which they
  /// happened.
  virtual void onEvent(const Dictionary& /*event*/) {}
};

/// The two targets of the library.
inline constexpr std::string_view kUploader = "Target_Uploader";
inline constexpr std::string_view kUploadQueue = "Target_UploadQueue";

class Host : private QXLogger, private QXTrackingEvents, private Console {
 public:
  /// Installs the platform, so that a process can make one host only. `listener` must live as long
  /// as the host.
  Host(const Settings& settings, const std::string& token, HostListener& listener);
  ~Host() override;

  HostAnswers& answers() { return answers_; }
  SwitchableReachability& reachability() { return reachability_; }
  const Platform& seams() const { return seams_; }
  /// Announces that the signed-in user has changed.
  void postUserChanged();

  /// Sends an action such as "Action_Upload:" to one of the two targets, on the calling thread.
  void perform(std::string_view target, const std::string& action,
               const Dictionary& parameters = {});
  /// Sends "Action_SetUp:" as the commands of this program send it.
  void setUp(bool serverResize, bool resumeStoredTasks);
  /// Calls `complete` with the stored tasks on the main thread, after all events told so far.
  void listStored(std::function<void(const std::vector<ListedTask>&)> complete);

  /// Runs `work` on the main thread.
  void post(Work work);
  /// Calls `tick` on the main thread every `seconds` until the timer is destroyed.
  std::unique_ptr<Timer> every(double seconds, Work tick);
  /// Runs the main queue until stop().
  void run();
  void stop();
  /// Ends all uploads and downloads after run(), and all threads. An upload that is interrupted
  /// does not count as failed, stored tasks stay stored, no callback comes any more, and no action
  /// may be sent. A second call does nothing.
  void shutDown();

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
  HostAnswers answers_;
  LinuxPlatform platform_;
  SwitchableReachability reachability_;
  const Platform seams_;
  bool isShutDown_ = false;
};

/// The platform's settings, which follow from the program's settings.
LinuxSettings linuxSettings(const Settings& settings);
/// The first setting that the platform cannot use, with its source and the reason. Empty when it
/// can use all. A fault of the documents directory is reported when the directory is opened.
std::string faultOfPlatform(const Settings& settings);

}  // namespace qx::app
