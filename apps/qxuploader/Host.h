// The host application: makes the platform and the library, answers the library's questions, hears
// its reports and events, and sends its actions.
//
// Threads: made by the main thread, which then calls run(). What the library reports arrives on any
// thread and goes to the HostListener there; its events arrive on the main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Library.h"
#include "HostAnswers.h"
#include "ListedTask.h"
#include "Settings.h"
#include "SwitchableReachability.h"
#include "platform/Platform.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx::app {

/// What the library tells the host besides its callbacks. Every operation but onEvent: any thread.
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
  /// An event of the upload queue; the main thread, in the order in which things happened.
  virtual void onEvent(const Dictionary& /*event*/) {}
};

/// The library's two targets.
inline constexpr std::string_view kUploader = "Target_Uploader";
inline constexpr std::string_view kUploadQueue = "Target_UploadQueue";

class Host : private QXLogger, private QXTrackingEvents, private Console {
 public:
  /// `listener` must live as long as the host.
  Host(const Settings& settings, const std::string& token, HostListener& listener);
  ~Host();

  HostAnswers& answers() { return answers_; }
  SwitchableReachability& reachability() { return reachability_; }
  const Platform& seams() const { return seams_; }
  /// Announces that the signed-in user changed.
  void postUserChanged();

  /// Sends "Action_Upload:" and the like to one of the two targets, on the calling thread.
  void perform(std::string_view target, const std::string& action,
               const Dictionary& parameters = {});
  /// "Action_SetUp:" as this program's commands send it.
  void setUp(bool serverResize, bool resumeStoredTasks);
  /// Calls `complete` on the main thread, behind the events told so far, with what is stored.
  void listStored(std::function<void(const std::vector<ListedTask>&)> complete);

  /// Runs `work` on the main thread.
  void post(Work work);
  /// Calls `tick` on the main thread every `seconds` until the timer is destroyed.
  std::unique_ptr<Timer> every(double seconds, Work tick);
  /// Runs the main queue until stop().
  void run();
  void stop();
  /// Ends what is under way, after run(), and the library with it. An upload that is cut off has
  /// not failed, and what is stored stays stored. From then on no callback is called and no action
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
  /// Null once it was shut down.
  std::unique_ptr<Library> library_;
};

/// The platform settings that follow from the program's.
LinuxSettings linuxSettings(const Settings& settings);
/// The first setting that the platform cannot use, where it came from and why; empty when it can
/// use all. What is wrong with the documents directory is told when it is opened.
std::string faultOfPlatform(const Settings& settings);

}  // namespace qx::app
