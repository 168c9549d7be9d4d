#include "StoredTaskLine.h"

#include <algorithm>

#include "Text.h"

namespace qx::app {

std::string whyStuck(const StoredTask& task, const UnknownScopes& scopes) {
  if (!task.inUserDirectory) return "its entry names a file outside the user's directory";
  if (!task.bytes) return "its data file is missing";
  if (scopes.contains(task.scope)) return "the backend knows no scope \"" + task.scope + "\"";
  return {};
}

std::string attemptsText(std::int64_t attempts) {
  return countText(static_cast<std::uint64_t>(std::max<std::int64_t>(attempts, 0)),
                   "failed attempt", "failed attempts");
}

std::string taskLine(const StoredTask& task) {
  return task.label() + "  " + task.scope + "  " +
         (task.bytes ? bytesText(*task.bytes) : "data missing") + "  " +
         (task.time ? timeText(*task.time) : "-") + "  " + attemptsText(task.attempts);
}

Event taskEvent(const StoredTask& task, const std::string& reason) {
  return {{"event", "task"},
          {"file", task.label()},
          {"name", task.filename},
          {"scope", task.scope},
          {"bytes", task.bytes ? Event(*task.bytes) : Event()},
          {"stored", timeOrNull(task.time)},
          {"attempts", task.attempts},
          {"cannotSucceed", reason.empty() ? Event() : Event(reason)}};
}

Event timeOrNull(const std::optional<double>& time) {
  return time ? Event(timeText(*time)) : Event();
}

}  // namespace qx::app
