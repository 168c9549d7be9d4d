#include "StatusCommand.h"

#include <algorithm>

#include "Session.h"
#include "StoredTaskLine.h"
#include "Text.h"
#include "UserStore.h"

namespace qx::app {
namespace {

void showStuck(Output& out, const StoredTask& task, const std::string& reason) {
  // An event of its own would say twice what the task's own event says.
  if (out.json()) return;
  out.event({}, "  " + task.label() + " cannot succeed: " + reason + "; \"qxuploader tasks drop " +
                    task.filename + "\" removes it");
}

}  // namespace

int runStatus(const Settings& settings, Output& out, bool verbose) {
  UserStore store(settings);
  const StoredTasks stored = store.log().read();
  if (stored.fault) {
    out.failure({{"event", "failed"}, {"error", *stored.fault}}, *stored.fault);
    return kSomeFailed;
  }
  const UnknownScopes scopes = store.unknownScopes();
  std::optional<double> oldest;
  std::int64_t attempts = 0;
  std::size_t stuck = 0;
  for (const StoredTask& task : stored.tasks) {
    if (task.time) oldest = std::min(oldest.value_or(*task.time), *task.time);
    attempts = std::max(attempts, task.attempts);
    const std::string reason = whyStuck(task, scopes);
    if (!reason.empty()) ++stuck;
    if (verbose || out.json()) out.event(taskEvent(task, reason), "  " + taskLine(task));
    if (!reason.empty()) showStuck(out, task, reason);
  }
  std::string line = "user " + store.userId() + ": " +
                     countText(stored.tasks.size(), "stored task", "stored tasks");
  if (!stored.tasks.empty()) {
    line += ", " + bytesText(stored.bytes());
    if (oldest) line += ", oldest " + timeText(*oldest);
    line += ", at most " + attemptsText(attempts) + " each";
  }
  if (stuck > 0) line += "; " + std::to_string(stuck) + " cannot succeed";
  out.event({{"event", "status"},
             {"user", store.userId()},
             {"count", stored.tasks.size()},
             {"bytes", stored.bytes()},
             {"oldest", timeOrNull(oldest)},
             {"attempts", attempts},
             {"cannotSucceed", stuck}},
            line);
  return kAllDone;
}

}  // namespace qx::app
