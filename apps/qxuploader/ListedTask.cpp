#include "ListedTask.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "HostEvent.h"
#include "Text.h"
#include "UploadTag.h"

namespace qx::app {
namespace {

std::string extraOf(const Dictionary& task, std::string_view key) {
  return textOf(readDictionary(task, "extra").value_or(Dictionary()), key);
}

std::string labelOf(const Dictionary& task) {
  std::string file = fileOfTag(textOf(task, "tag"));
  // Earlier versions of this program noted the file here.
  if (file.empty()) file = extraOf(task, "qxuploaderFile");
  return file.empty() ? textOf(task, "name") : file;
}

bool isItemId(const std::string& text) {
  std::int64_t id = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), id);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() && id > 0;
}

std::optional<double> realOf(const Dictionary& task, std::string_view key) {
  const auto found = task.find(key);
  const double* real = found == task.end() ? nullptr : found->second.asDouble();
  return real != nullptr ? std::optional(*real) : std::nullopt;
}

/// A task whose bytes are missing is still stored. A task that is uploaded from memory alone is
/// not.
bool isStored(const Dictionary& task) {
  return flagOf(task, "stored") || textOf(task, "state") == "stored";
}

ListedTask taskOf(const Dictionary& task) {
  ListedTask listed = {.name = textOf(task, "name"),
                       .scope = textOf(task, "scope"),
                       .tag = textOf(task, "tag"),
                       .label = labelOf(task),
                       .isImage = isItemId(extraOf(task, "uuid")),
                       .attempts = numberOf(task, "attempts"),
                       .bytes = {},
                       .time = realOf(task, "accepted"),
                       .fault = {}};
  if (const auto size = readInt(task, "size")) listed.bytes = static_cast<std::uint64_t>(*size);
  const std::string why = textOf(task, "why");
  listed.stray = why == "stray";
  if (listed.stray || why == "bytes") listed.fault = textOf(task, "reason");
  return listed;
}

}  // namespace

std::vector<ListedTask> storedTasks(const Array& list) {
  std::vector<ListedTask> tasks;
  for (const Value& element : list) {
    const Dictionary* task = element.asDictionary();
    if (task != nullptr && isStored(*task)) tasks.push_back(taskOf(*task));
  }
  std::ranges::sort(tasks, {}, [](const ListedTask& task) {
    return std::pair(task.time.value_or(0), task.name);
  });
  return tasks;
}

std::uint64_t bytesOf(const std::vector<ListedTask>& tasks) {
  std::uint64_t sum = 0;
  for (const ListedTask& task : tasks) sum += task.bytes.value_or(0);
  return sum;
}

std::string whyStuck(const ListedTask& task, const UnknownScopes& scopes) {
  if (!task.fault.empty()) return task.fault;
  if (scopes.contains(task.scope)) return "the backend knows no scope \"" + task.scope + "\"";
  return {};
}

std::string attemptsText(std::int64_t attempts) {
  return countText(static_cast<std::uint64_t>(std::max<std::int64_t>(attempts, 0)),
                   "failed attempt", "failed attempts");
}

std::string taskLine(const ListedTask& task) {
  return task.label + "  " + task.scope + "  " +
         (task.bytes ? bytesText(*task.bytes) : "data missing") + "  " +
         (task.time ? timeText(*task.time) : "-") + "  " + attemptsText(task.attempts);
}

Event taskEvent(const ListedTask& task, const std::string& reason) {
  return {{"event", "task"},
          {"file", task.label},
          {"name", task.name},
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
