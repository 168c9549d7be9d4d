#include "TasksCommand.h"

#include <algorithm>
#include <utility>

#include "Advice.h"
#include "HostEvent.h"

namespace qx::app {

void TasksListCommand::show(const std::vector<ListedTask>& tasks) {
  const UnknownScopes scopes = unknownScopes();
  for (const ListedTask& task : tasks) {
    const std::string reason = whyStuck(task, scopes);
    const std::string name = task.label == task.name ? "" : task.name + "  ";
    out().event(taskEvent(task, reason),
                name + taskLine(task) + (reason.empty() ? "" : "  cannot succeed: " + reason));
  }
  finish(kAllDone);
}

TasksDropCommand::TasksDropCommand(const Context& context, std::vector<std::string> names)
    : StoredCommand(context), names_(std::move(names)) {}

void TasksDropCommand::show(const std::vector<ListedTask>& tasks) {
  std::vector<ListedTask> named;
  for (const std::string& name : names_) {
    const auto found = std::ranges::find(tasks, name, &ListedTask::name);
    if (found != tasks.end()) {
      named.push_back(*found);
      continue;
    }
    status_ = kSomeFailed;
    out().failure({{"event", "failed"}, {"file", name}, {"error", "not stored"}},
                  name + " is not stored; \"qxuploader tasks list\" tells the names");
  }
  if (named.empty()) return finish(status_);
  drop(named);
}

void TasksDropCommand::drop(const std::vector<ListedTask>& tasks) {
  Array names;
  for (const ListedTask& task : tasks) names.emplace_back(task.name);
  host().perform(kUploadQueue, "Action_Drop:", {{"names", std::move(names)}});
  // The list comes after the events of the dropping.
  host().listStored([this, tasks](const std::vector<ListedTask>&) { tellDropped(tasks); });
}

void TasksDropCommand::onEvent(const Dictionary& event) {
  const std::string name = textOf(event, "event");
  if (name == "dropped") dropped_.insert(textOf(event, "name"));
  if (name == "dropFailed") failure_ = errorOf(event);
  StoredCommand::onEvent(event);
}

void TasksDropCommand::tellDropped(const std::vector<ListedTask>& tasks) {
  if (unavailable() && refusesStored(*unavailable())) {
    tellRefusal(*unavailable());
    return finish(kSomeFailed);
  }
  if (failure_) {
    out().failure({{"event", "failed"}, {"error", errorFields(*failure_)}},
                  "not every task could be dropped: " + withAdvice(*failure_));
    return finish(kSomeFailed);
  }
  for (const ListedTask& task : tasks) {
    if (!dropped_.contains(task.name)) continue;
    out().event({{"event", "dropped"}, {"file", task.label}, {"name", task.name}},
                task.label + " is dropped");
  }
  finish(status_);
}

}  // namespace qx::app
