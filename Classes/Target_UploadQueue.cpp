#include "Classes/Target_UploadQueue.h"

#include <array>
#include <memory>
#include <utility>

#include "Classes/ActionMistakes.h"
#include "Classes/Library.h"
#include "Classes/Log.h"

namespace qx {
namespace {

struct Action {
  std::string_view selector;
  void (Target_UploadQueue::*perform)(const Dictionary&);
};

constexpr std::array<Action, 8> kActions = {{
    {"Action_Observe:", &Target_UploadQueue::Action_Observe},
    {"Action_List:", &Target_UploadQueue::Action_List},
    {"Action_Pause:", &Target_UploadQueue::Action_Pause},
    {"Action_Resume:", &Target_UploadQueue::Action_Resume},
    {"Action_Cancel:", &Target_UploadQueue::Action_Cancel},
    {"Action_Retry:", &Target_UploadQueue::Action_Retry},
    {"Action_Drop:", &Target_UploadQueue::Action_Drop},
    {"Action_WhenIdle:", &Target_UploadQueue::Action_WhenIdle},
}};

}  // namespace

Target_UploadQueue::Target_UploadQueue() : library_(Library::shared()) {}

void Target_UploadQueue::registerWith(QXMediator& mediator) {
  mediator.registerTarget("Target_UploadQueue",
                          [] { return std::make_unique<Target_UploadQueue>(); });
}

void Target_UploadQueue::registerWith(QXMediator& mediator, Library& library) {
  mediator.registerTarget("Target_UploadQueue",
                          [&library] { return std::make_unique<Target_UploadQueue>(library); });
}

bool Target_UploadQueue::performAction(std::string_view action, const Dictionary& parameters) {
  for (const Action& known : kActions) {
    if (known.selector == action) {
      (this->*known.perform)(parameters);
      return true;
    }
  }
  return false;
}

std::vector<std::string> Target_UploadQueue::mistakes(std::string_view action,
                                                      const Dictionary& parameters) {
  return ActionMistakes::inParameters(action, parameters, library_.platform.imageHeaders);
}

void Target_UploadQueue::logMissing(std::string_view key, std::string_view function,
                                    int line) const {
  log(library_.platform, kLogError, "miss " + std::string(key), "QXAwsUploader/Target_UploadQueue",
      function, line);
}

void Target_UploadQueue::Action_Observe(const Dictionary& parameters) {
  auto events = readCallback<HostEvents>(parameters, "events");
  if (!events) return logMissing("events", "Action_Observe(_:)", __LINE__);
  library_.events.observe(*std::move(events));
}

void Target_UploadQueue::Action_List(const Dictionary& parameters) {
  auto complete = readCallback<HostTaskList>(parameters, "complete");
  if (!complete) return logMissing("complete", "Action_List(_:)", __LINE__);
  library_.uploadControl.list(*std::move(complete));
}

void Target_UploadQueue::Action_Pause(const Dictionary& parameters) {
  library_.uploadControl.pause(readBool(parameters, "cancelRunning").value_or(false));
}

void Target_UploadQueue::Action_Resume(const Dictionary& /*parameters*/) {
  library_.uploadControl.resume();
}

void Target_UploadQueue::Action_Cancel(const Dictionary& parameters) {
  const auto names = readTextList(parameters, "names");
  if (!names) return logMissing("names", "Action_Cancel(_:)", __LINE__);
  library_.uploadControl.cancel(*names);
}

void Target_UploadQueue::Action_Retry(const Dictionary& parameters) {
  const auto names = readTextList(parameters, "names");
  if (!names) return logMissing("names", "Action_Retry(_:)", __LINE__);
  library_.uploadControl.retry(*names);
}

void Target_UploadQueue::Action_Drop(const Dictionary& parameters) {
  const auto names = readTextList(parameters, "names");
  if (!names) return logMissing("names", "Action_Drop(_:)", __LINE__);
  library_.uploadControl.drop(*names);
}

void Target_UploadQueue::Action_WhenIdle(const Dictionary& parameters) {
  auto complete = readCallback<HostIdle>(parameters, "complete");
  if (!complete) return logMissing("complete", "Action_WhenIdle(_:)", __LINE__);
  library_.idle.whenIdle(*std::move(complete));
}

}  // namespace qx
