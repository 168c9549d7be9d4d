#include "StatusCommand.h"

#include <algorithm>

#include "Host.h"
#include "Session.h"
#include "StoredTasks.h"
#include "Text.h"

namespace qx::app {
namespace {

Event numberOrNull(const std::optional<std::uint64_t>& number) {
  return number ? Event(*number) : Event();
}

Event timeOrNull(const std::optional<double>& time) {
  return time ? Event(timeText(*time)) : Event();
}

void showTask(Output& out, const StoredTask& task) {
  out.event({{"event", "task"},
             {"file", task.label()},
             {"name", task.filename},
             {"scope", task.scope},
             {"bytes", numberOrNull(task.bytes)},
             {"stored", timeOrNull(task.time)},
             {"attempts", task.attempts}},
            "  " + task.label() + "  " + task.scope + "  " +
                (task.bytes ? bytesText(*task.bytes) : "data missing") + "  " +
                (task.time ? timeText(*task.time) : "-") + "  " +
                countText(static_cast<std::uint64_t>(std::max<std::int64_t>(task.attempts, 0)),
                          "failed attempt", "failed attempts"));
}

}  // namespace

int runStatus(const Settings& settings, Output& out, bool verbose) {
  const std::string userId = settings.get("user_id").value_or("");
  LinuxPlatform platform(linuxSettings(settings));
  const Platform seams = platform.seams();
  const auto directories = seams.files.documentDirectories();
  const StoredTasks stored = readStoredTasks(
      seams.files, seams.propertyLists, directories.empty() ? "" : directories.front(), userId);
  if (stored.fault) {
    out.failure({{"event", "failed"}, {"error", *stored.fault}},
                *stored.fault + "; the next background upload sets it aside");
    return kSomeFailed;
  }
  std::optional<double> oldest;
  std::int64_t attempts = 0;
  for (const StoredTask& task : stored.tasks) {
    if (task.time) oldest = std::min(oldest.value_or(*task.time), *task.time);
    attempts = std::max(attempts, task.attempts);
  }
  if (verbose || out.json()) {
    for (const StoredTask& task : stored.tasks) showTask(out, task);
  }
  std::string line =
      "user " + userId + ": " + countText(stored.tasks.size(), "stored task", "stored tasks");
  if (!stored.tasks.empty()) {
    line += ", " + bytesText(stored.bytes());
    if (oldest) line += ", oldest " + timeText(*oldest);
    line += ", at most " +
            countText(static_cast<std::uint64_t>(std::max<std::int64_t>(attempts, 0)),
                      "failed attempt", "failed attempts") +
            " each";
  }
  out.event({{"event", "status"},
             {"user", userId},
             {"count", stored.tasks.size()},
             {"bytes", stored.bytes()},
             {"oldest", timeOrNull(oldest)},
             {"attempts", attempts}},
            line);
  return kAllDone;
}

}  // namespace qx::app
