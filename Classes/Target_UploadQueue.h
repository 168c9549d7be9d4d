// The second target of the library, by which a host can see and steer more than the seven actions
// of Target_Uploader allow. It changes nothing for a host that does not register it.
//
//     qx::Target_UploadQueue::registerWith(platform.mediator());
//     mediator.performTarget("Target_UploadQueue", "Action_Observe:",
//                            {{"events", qx::Value::callback<qx::HostEvents>(printEvent)}});
//
// Threads: an action runs on the caller's thread and returns at once. The callbacks run on the
// serial queue "com.aws.events", one at a time, in the order of the events. They may block that
// queue and send actions; no upload waits for them. No action returns a value or throws.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Classes/HostCallbacks.h"
#include "platform/Export.h"
#include "platform/Host.h"
#include "platform/Value.h"

namespace qx {

class Library;

class QX_EXPORT Target_UploadQueue : public MediatorTarget {
 public:
  /// Makes a target that uses the library of the process.
  Target_UploadQueue();
  /// `library` must outlive the target and what it has started.
  explicit Target_UploadQueue(Library& library) : library_(library) {}

  /// Makes the target known to the mediator as "Target_UploadQueue".
  static void registerWith(QXMediator& mediator);
  static void registerWith(QXMediator& mediator, Library& library);

  /// Calls the method below that belongs to the action.
  bool performAction(std::string_view action, const Dictionary& parameters) override;
  std::vector<std::string> mistakes(std::string_view action, const Dictionary& parameters) override;

  // There is one method for each action. Without a required key an action only logs which key it
  // misses.

  /// "events": a callback of the type HostEvents. Adds an observer, which stays until the process
  /// ends. Earlier events are not told.
  void Action_Observe(const Dictionary& parameters);
  /// "complete": a callback of the type HostTaskList. Lists the uploads that run, wait or are
  /// stored, including direct ones. Before "Action_SetUp:" it lists the uploads that are stored for
  /// the user whom the host names, and changes nothing on the disk.
  void Action_List(const Dictionary& parameters);
  /// No further background upload starts. With "cancelRunning" (boolean, default false) running
  /// uploads end at once, each with one failure that is not counted. Uploads that are not stored go
  /// on, because ending them would lose their bytes.
  void Action_Pause(const Dictionary& parameters);
  /// Background uploads start again, including those that the pause has ended.
  void Action_Resume(const Dictionary& parameters);
  /// "names": a list of texts. A running upload ends at once and reports one failure, which is not
  /// counted. A waiting upload does not start until it is retried. A stored upload keeps its bytes.
  void Action_Cancel(const Dictionary& parameters);
  /// "names": a list of texts. Gives stored uploads all their attempts back and queues them now.
  void Action_Retry(const Dictionary& parameters);
  /// "names": a list of texts. Forgets uploads together with their bytes. A running upload ends as
  /// with "Action_Cancel:". Before "Action_SetUp:" it works on the uploads that are stored for the
  /// user whom the host names.
  void Action_Drop(const Dictionary& parameters);
  /// "complete": a callback of the type HostIdle. It is called as soon as no upload, download or
  /// image report runs or waits, neither in the queue nor on the disk for its next attempt.
  /// Cancelled uploads do not count; paused ones do.
  void Action_WhenIdle(const Dictionary& parameters);

 private:
  void logMissing(std::string_view key, std::string_view function, int line) const;

  Library& library_;
};

}  // namespace qx
