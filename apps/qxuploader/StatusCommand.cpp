#include "StatusCommand.h"

#include <algorithm>
#include <optional>
#include <string>

#include "Text.h"

namespace qx::app {
namespace {

void showStuck(Output& out, const ListedTask& task, const std::string& reason) {
  // An event of its own would repeat the task's own event.
  if (out.json()) return;
  out.event({}, "  " + task.label + " cannot succeed: " + reason + "; \"qxuploader tasks drop " +
                    task.name + "\" removes it");
}

}  // namespace

void StatusCommand::show(const std::vector<ListedTask>& tasks) {
  const UnknownScopes scopes = unknownScopes();
  std::optional<double> oldest;
  std::int64_t attempts = 0;
  std::size_t stuck = 0;
  for (const ListedTask& task : tasks) {
    if (task.time) oldest = std::min(oldest.value_or(*task.time), *task.time);
    attempts = std::max(attempts, task.attempts);
    const std::string reason = whyStuck(task, scopes);
    if (!reason.empty()) ++stuck;
    if (context().verbose || out().json()) {
      out().event(taskEvent(task, reason), "  " + taskLine(task));
    }
    if (!reason.empty()) showStuck(out(), task, reason);
  }
  std::string line =
      "user " + userId() + ": " + countText(tasks.size(), "stored task", "stored tasks");
  if (!tasks.empty()) {
    line += ", " + bytesText(bytesOf(tasks));
    if (oldest) line += ", oldest " + timeText(*oldest);
    line += ", at most " + attemptsText(attempts) + " each";
  }
  if (stuck > 0) line += "; " + std::to_string(stuck) + " cannot succeed";
  out().event({{"event", "status"},
               {"user", userId()},
               {"count", tasks.size()},
               {"bytes", bytesOf(tasks)},
               {"oldest", timeOrNull(oldest)},
               {"attempts", attempts},
               {"cannotSucceed", stuck}},
              line);
  finish(kAllDone);
}

}  // namespace qx::app
