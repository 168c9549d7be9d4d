#include "StoredTasks.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>
#include <utility>

namespace qx::app {
namespace {

constexpr std::string_view kCount = "upload_count";

/// The number of failed attempts as the library counts them: a log of another writer may hold a
/// real or a text.
std::int64_t attemptsIn(const Dictionary& base) {
  const auto found = base.find(std::string(kCount));
  if (found == base.end()) return 0;
  if (const std::int64_t* number = found->second.asInt()) return *number;
  if (const double* number = found->second.asDouble()) {
    return std::abs(*number) < 0x1p63 ? static_cast<std::int64_t>(*number) : 0;
  }
  std::int64_t count = 0;
  if (const std::string* text = found->second.asText()) {
    const auto read = std::from_chars(text->data(), text->data() + text->size(), count);
    if (read.ec != std::errc() || read.ptr != text->data() + text->size()) count = 0;
  }
  return count;
}

StoredTask taskOf(const std::string& filename, const Dictionary& entry, const Dictionary& base) {
  StoredTask task;
  task.filename = filename;
  task.attempts = attemptsIn(base);
  task.extra = readDictionary(entry, "extra").value_or(Dictionary());
  return task;
}

}  // namespace

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

StoredLog::StoredLog(Files& files, PropertyLists& propertyLists, const std::string& documents,
                     const std::string& userId)
    : files_(files),
      propertyLists_(propertyLists),
      documents_(documents),
      folder_("aws-0011/" + userId + "/"),
      log_(documents_ + "/" + folder_ + "logs.plist") {}

Result<Dictionary> StoredLog::entries() const {
  if (files_.kind(log_) == PathKind::absent) return Dictionary();
  const auto bytes = files_.read(log_);
  if (!bytes) return bytes.error();
  const auto root = propertyLists_.decode(*bytes);
  const Dictionary* entries = root ? root->asDictionary() : nullptr;
  if (entries != nullptr) return *entries;
  return Error{"Files", 0,
               log_ +
                   " is damaged: it is no property list with a dictionary; the next background "
                   "upload sets it aside"};
}

StoredTasks StoredLog::read() const {
  StoredTasks stored;
  const auto entries = this->entries();
  if (!entries) {
    stored.fault = entries.error().description;
    return stored;
  }
  for (const auto& [filename, value] : *entries) {
    const Dictionary* entry = value.asDictionary();
    const auto base = entry ? readDictionary(*entry, "base") : std::nullopt;
    const auto path = base ? readText(*base, "file_path") : std::nullopt;
    const auto scope = base ? readText(*base, "module_key") : std::nullopt;
    if (!path || !scope) continue;  // as the library does with such an entry
    StoredTask task = taskOf(filename, *entry, *base);
    task.scope = *scope;
    task.path = documents_ + "/" + *path;
    task.inUserDirectory = isPlainPathComponent(filename) && *path == folder_ + filename;
    struct stat info {};
    if (::lstat(task.path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
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

std::optional<Error> StoredLog::drop(const std::vector<StoredTask>& tasks) const {
  auto entries = this->entries();
  if (!entries) return entries.error();
  std::optional<Error> failure;
  for (const StoredTask& task : tasks) {
    // The data first: an entry without data is of no harm, and a full disk gets room for the log.
    if (task.inUserDirectory && task.bytes) {
      if (auto error = files_.remove(task.path)) {
        failure = std::move(error);
        continue;
      }
    }
    (*entries).erase(task.filename);
  }
  auto unwritten = write(*entries);
  return unwritten ? std::move(unwritten) : failure;
}

std::optional<Error> StoredLog::resetAttempts(const std::vector<StoredTask>& tasks) const {
  auto entries = this->entries();
  if (!entries) return entries.error();
  for (const StoredTask& task : tasks) {
    const auto found = (*entries).find(task.filename);
    if (found == (*entries).end() || !found->second.asDictionary()) continue;
    Dictionary entry = *found->second.asDictionary();
    Dictionary base = readDictionary(entry, "base").value_or(Dictionary());
    base[std::string(kCount)] = std::int64_t{0};
    entry["base"] = std::move(base);
    found->second = std::move(entry);
  }
  return write(*entries);
}

std::optional<Error> StoredLog::write(const Dictionary& entries) const {
  const auto root = propertyLists_.element(entries);
  if (!root) return Error{"Files", 0, log_ + " holds values that cannot be written again"};
  const std::array<std::string_view, 3> pieces = {propertyLists_.documentStart(), *root,
                                                  propertyLists_.documentEnd()};
  return files_.write(log_, pieces, WriteMode::atomic, Durability::synced);
}

}  // namespace qx::app
