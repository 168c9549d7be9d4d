#include "TasksCommand.h"

#include <algorithm>
#include <utility>

#include "Advice.h"
#include "Session.h"
#include "StoredTaskLine.h"
#include "UserStore.h"

namespace qx::app {
namespace {

/// The stored tasks, or nothing when the log cannot be read, which is told then.
std::optional<std::vector<StoredTask>> tasksOf(UserStore& store, Output& out) {
  StoredTasks stored = store.log().read();
  if (!stored.fault) return std::move(stored.tasks);
  out.failure({{"event", "failed"}, {"error", *stored.fault}}, *stored.fault);
  return std::nullopt;
}

}  // namespace

int runTasksList(const Settings& settings, Output& out) {
  UserStore store(settings);
  const auto tasks = tasksOf(store, out);
  if (!tasks) return kSomeFailed;
  const UnknownScopes scopes = store.unknownScopes();
  for (const StoredTask& task : *tasks) {
    const std::string reason = whyStuck(task, scopes);
    const std::string name = task.label() == task.filename ? "" : task.filename + "  ";
    out.event(taskEvent(task, reason),
              name + taskLine(task) + (reason.empty() ? "" : "  cannot succeed: " + reason));
  }
  return kAllDone;
}

int runTasksDrop(const Settings& settings, Output& out, const std::vector<std::string>& names) {
  UserStore store(settings);
  const auto tasks = tasksOf(store, out);
  if (!tasks) return kSomeFailed;
  int status = kAllDone;
  std::vector<StoredTask> dropped;
  for (const std::string& name : names) {
    const auto found = std::ranges::find(*tasks, name, &StoredTask::filename);
    if (found != tasks->end()) {
      dropped.push_back(*found);
      continue;
    }
    status = kSomeFailed;
    out.failure({{"event", "failed"}, {"file", name}, {"error", "not stored"}},
                name + " is not stored; \"qxuploader tasks list\" tells the names");
  }
  if (dropped.empty()) return status;
  if (const auto error = store.log().drop(dropped)) {
    out.failure({{"event", "failed"}, {"error", errorFields(*error)}},
                "not every task could be dropped: " + withAdvice(*error));
    return kSomeFailed;
  }
  for (const StoredTask& task : dropped) {
    out.event({{"event", "dropped"}, {"file", task.label()}, {"name", task.filename}},
              task.label() + " is dropped");
  }
  return status;
}

}  // namespace qx::app
