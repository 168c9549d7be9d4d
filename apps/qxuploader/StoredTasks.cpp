#include "StoredTasks.h"

#include <sys/stat.h>

#include <algorithm>

namespace qx::app {

std::string StoredTask::extraText(std::string_view key) const {
  return readText(extra, key).value_or("");
}

std::string StoredTask::label() const {
  const std::string file = extraText(kFileExtra);
  return file.empty() ? filename : file;
}

std::uint64_t StoredTasks::bytes() const {
  std::uint64_t sum = 0;
  for (const StoredTask& task : tasks) sum += task.bytes.value_or(0);
  return sum;
}

StoredTasks readStoredTasks(Files& files, PropertyLists& propertyLists,
                            const std::string& documents, const std::string& userId) {
  StoredTasks stored;
  const std::string log = documents + "/aws-0011/" + userId + "/logs.plist";
  if (files.kind(log) == PathKind::absent) return stored;
  const auto bytes = files.read(log);
  if (!bytes) {
    stored.fault = bytes.error().description;
    return stored;
  }
  const auto root = propertyLists.decode(*bytes);
  const Dictionary* entries = root ? root->asDictionary() : nullptr;
  if (entries == nullptr) {
    stored.fault = log + " is damaged: it is no property list with a dictionary";
    return stored;
  }
  for (const auto& [filename, value] : *entries) {
    const Dictionary* entry = value.asDictionary();
    const auto base = entry ? readDictionary(*entry, "base") : std::nullopt;
    const auto path = base ? readText(*base, "file_path") : std::nullopt;
    const auto scope = base ? readText(*base, "module_key") : std::nullopt;
    if (!path || !scope) continue;  // as the library does with such an entry
    StoredTask task;
    task.filename = filename;
    task.scope = *scope;
    task.path = documents + "/" + *path;
    task.attempts = readInt(*base, "upload_count").value_or(0);
    task.extra = readDictionary(*entry, "extra").value_or(Dictionary());
    struct stat info {};
    if (::stat(task.path.c_str(), &info) == 0) {
      task.bytes = static_cast<std::uint64_t>(info.st_size);
      task.time = static_cast<double>(info.st_mtim.tv_sec);
    }
    stored.tasks.push_back(std::move(task));
  }
  std::sort(stored.tasks.begin(), stored.tasks.end(), [](const StoredTask& a, const StoredTask& b) {
    return std::pair(a.time.value_or(0), a.filename) < std::pair(b.time.value_or(0), b.filename);
  });
  return stored;
}

}  // namespace qx::app
