// The second target of the library: what a host may want to see and to steer beyond the seven
// actions of Target_Uploader. A host that does not register it notices nothing of it.
//
//     qx::Target_UploadQueue::registerWith(platform.mediator());
//     mediator.performTarget("Target_UploadQueue", "Action_Observe:",
//                            {{"events", qx::Value::callback<qx::HostEvents>(printEvent)}});
//
// Threads: an action runs on the caller's thread and returns at once. The callbacks run on the
// serial queue "com.aws.events", one at a time, in the order in which things happened. They may
// block that queue and send actions, and no upload waits for them. No action returns a value or
// throws.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Classes/HostCallbacks.h"
#include "platform/Host.h"
#include "platform/Value.h"

namespace qx {

class Library;

class Target_UploadQueue : public MediatorTarget {
 public:
  /// Above the library of the process.
  Target_UploadQueue();
  /// `library` must outlive the target and what it has started.
  explicit Target_UploadQueue(Library& library) : library_(library) {}

  /// Makes the target known to the mediator as "Target_UploadQueue".
  static void registerWith(QXMediator& mediator);
  static void registerWith(QXMediator& mediator, Library& library);

  /// Routes "Action_Observe:" and the other seven to the methods below.
  bool performAction(std::string_view action, const Dictionary& parameters) override;
  std::vector<std::string> mistakes(std::string_view action, const Dictionary& parameters) override;

  // One per action. Without a required key an action only logs what it misses.

  /// "events": a callback of the type HostEvents. Adds an observer, which stays until the process
  /// ends. Events before this call are not told.
  void Action_Observe(const Dictionary& parameters);
  /// "complete": a callback of the type HostTaskList. Lists the uploads that run, wait or are
  /// stored, direct ones included. Before "Action_SetUp:" it lists what is stored for the user whom
  /// the host names, and changes nothing on disk.
  void Action_List(const Dictionary& parameters);
  /// No further background upload starts. With "cancelRunning" (boolean, false) the running ones
  /// end at once, each with one failure that is not counted, except those that are not stored:
  /// ending them would lose their bytes.
  void Action_Pause(const Dictionary& parameters);
  /// Background uploads start again, those ended by the pause among them.
  void Action_Resume(const Dictionary& parameters);
  /// "names": a list of texts. A running upload ends at once and reports one failure, which is not
  /// counted. A waiting one does not start until it is retried. A stored one keeps its bytes.
  void Action_Cancel(const Dictionary& parameters);
  /// "names": a list of texts. Gives stored uploads all their attempts back and queues them now.
  void Action_Retry(const Dictionary& parameters);
  /// "names": a list of texts. Forgets uploads together with their bytes; a running one ends as
  /// "Action_Cancel:" ends it. Works before "Action_SetUp:" on what is stored for the user whom
  /// the host names.
  void Action_Drop(const Dictionary& parameters);
  /// "complete": a callback of the type HostIdle. It is called once no upload, download or image
  /// report runs and none waits, be it in the queue or on disk for its next attempt. Cancelled
  /// uploads do not count; paused ones do.
  void Action_WhenIdle(const Dictionary& parameters);

 private:
  void logMissing(std::string_view key, std::string_view function, int line) const;

  Library& library_;
};

}  // namespace qx
