#include "Classes/UploadControl.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace qx {
namespace {

std::int64_t failedAttempts(const Task& task) {
  const auto* stored = dynamic_cast<const FileTask*>(&task);
  return stored ? stored->uploadCount() : 0;
}

}  // namespace

TaskFacts UploadControl::facts(TaskStage stage, const Task& task, double now) {
  TaskFacts facts;
  facts.stage = stage;
  facts.held = parts_.queue.isHeld(task.filename());
  facts.paused = parts_.queue.paused();
  facts.reachable = parts_.platform.reachability.isReachable();
  facts.refusal = parts_.configure.refusal(task.scope());
  facts.running = parts_.queue.concurrentCount();
  facts.limit = parts_.queue.limit();
  facts.nextTry = parts_.retryTimer.nextTick();
  facts.now = now;
  return facts;
}

std::shared_ptr<UserTaskStorage> UploadControl::storageToRead() {
  if (const auto scheduler = parts_.configure.scheduler.load()) return scheduler->storage();
  const Value userId = parts_.platform.mediator.perform("Account_GetUserId", {});
  if (userId.asText() == nullptr) return nullptr;
  return std::make_shared<UserTaskStorage>(parts_.platform, *userId.asText(),
                                           StoredTasks::readOnly);
}

Array UploadControl::tasks() {
  Array list;
  const double now = parts_.platform.clock.now();
  Files& files = parts_.platform.files;
  std::set<std::string> told;
  const auto add = [&](const Task& task, UploadKind kind, TaskFacts facts) {
    if (!told.insert(task.filename()).second) return;
    ListedTask entry{.kind = kind, .attempts = failedAttempts(task)};
    if (facts.stray) {
      // A file outside the user's directory is not examined.
      entry.stored = true;
    } else if (const auto* stored = dynamic_cast<const FileTask*>(&task)) {
      const Result<FileFacts> file = files.facts(documentPath(files) + "/" + stored->filePath());
      entry.stored = true;
      if (file) {
        entry.size = file->size;
        entry.accepted = file->modified;
      }
      facts.bytesMissing = !file;
    } else if (const auto data = task.data()) {
      entry.size = data->size();
    }
    entry.facts = std::move(facts);
    list.emplace_back(listed(task, entry));
  };
  for (const auto& executor : parts_.directUploads.all()) {
    add(*executor->task, UploadKind::direct, facts(TaskStage::running, *executor->task, now));
  }
  for (const auto& executor : parts_.queue.running()) {
    add(*executor->task, UploadKind::background, facts(TaskStage::running, *executor->task, now));
  }
  std::int64_t before = 0;
  for (const auto& executor : parts_.queue.waiting()) {
    TaskFacts queued = facts(TaskStage::queued, *executor->task, now);
    queued.before = before++;
    add(*executor->task, UploadKind::background, std::move(queued));
  }
  const std::shared_ptr<UserTaskStorage> storage = storageToRead();
  if (!storage) return list;
  const Result<UserTaskStorage::LoggedTasks> logged = storage->readTasks();
  if (!logged) {
    parts_.events.storeUnavailable(logged.error());
    return list;
  }
  for (const auto& task : logged->tasks) {
    add(*task, UploadKind::background, facts(TaskStage::stored, *task, now));
  }
  for (const auto& task : logged->strays) {
    TaskFacts stray = facts(TaskStage::stored, *task, now);
    stray.stray = true;
    add(*task, UploadKind::background, std::move(stray));
  }
  return list;
}

void UploadControl::list(std::function<void(Array)> complete) {
  parts_.events.afterEvents([this, complete = std::move(complete)] {
    Array list = tasks();
    // Runs after the events that the reading has told.
    parts_.events.afterEvents([complete, list = std::move(list)] { complete(list); });
  });
}

void UploadControl::pause(bool cancelRunning) {
  parts_.queue.pause();
  if (!cancelRunning) return;
  std::vector<std::string> names;
  for (const auto& executor : parts_.queue.running()) {
    if (!executor->task->hasPath()) continue;
    names.push_back(executor->task->filename());
    executor->cancel();
  }
  endedByPause_.update([&names](std::vector<std::string> earlier) {
    earlier.insert(earlier.end(), names.begin(), names.end());
    return earlier;
  });
}

void UploadControl::resume() {
  parts_.queue.resume();
  parts_.events.afterEvents([this] {
    std::vector<std::string> names;
    endedByPause_.update([&names](const std::vector<std::string>& ended) {
      names = ended;
      return std::vector<std::string>();
    });
    const auto scheduler = parts_.configure.scheduler.load();
    if (!scheduler) return;
    scheduler->retry(names, TaskScheduler::Attempts::keep);
    // The ticks of the pause have passed without an effect.
    scheduler->retryLocalTask();
  });
}

void UploadControl::stop(const std::vector<std::string>& names) {
  const std::set<std::string> wanted(names.begin(), names.end());
  for (const std::string& name : wanted) {
    if (const auto direct = parts_.directUploads.find(name)) {
      direct->cancel();
    } else {
      parts_.queue.hold(name);
    }
  }
  for (const auto& executor : parts_.queue.takeWaiting(wanted)) {
    parts_.events.cancelled(*executor->task);
    // The bytes of this upload are nowhere else.
    if (!executor->task->hasPath()) parts_.events.dropped(*executor->task);
  }
  for (const auto& executor : parts_.queue.running()) {
    if (wanted.contains(executor->task->filename())) executor->cancel();
  }
}

void UploadControl::cancel(const std::vector<std::string>& names) {
  stop(names);
  parts_.idle.changed();
}

void UploadControl::retry(const std::vector<std::string>& names) {
  parts_.events.afterEvents([this, names] {
    if (const auto scheduler = parts_.configure.scheduler.load()) {
      scheduler->retry(names, TaskScheduler::Attempts::giveBack);
    }
  });
}

void UploadControl::drop(const std::vector<std::string>& names) {
  stop(names);
  parts_.events.afterEvents([this, names] {
    const auto scheduler = parts_.configure.scheduler.load();
    std::shared_ptr<UserTaskStorage> storage = storageToRead();
    if (!storage) return;
    const Result<UserTaskStorage::LoggedTasks> logged = storage->readTasks();
    if (!logged) return;
    std::map<std::string, std::shared_ptr<FileTask>> stored;
    for (const auto& task : logged->tasks) stored.emplace(task->filename(), task);
    std::vector<std::shared_ptr<FileTask>> strays = logged->strays;
    // The storage of an identity that is in force has removed such entries when it was opened.
    std::erase_if(strays, [&](const auto& task) {
      return scheduler || std::ranges::find(names, task->filename()) == names.end();
    });
    std::vector<std::string> known;
    for (const std::string& name : names) {
      if (stored.contains(name)) known.push_back(name);
    }
    std::optional<Error> fault;
    // Without an identity nothing is under way, and the uploads of other runs must stay stored.
    if (!scheduler && !(known.empty() && strays.empty())) {
      storage = parts_.storages.open(storage->userId(), StoredTasks::resume);
      fault = storage->fault();
      if (fault) parts_.events.storeUnavailable(*fault);
    }
    const std::map<std::string, Error> failures = storage->removeAll(known);
    for (const std::string& name : known) {
      const auto failure = failures.find(name);
      if (failure == failures.end()) {
        parts_.events.dropped(*stored.at(name));
      } else {
        parts_.events.dropFailed(*stored.at(name), failure->second);
      }
    }
    for (const auto& task : strays) {
      // The opening of the storage has removed the entry.
      if (fault) {
        parts_.events.dropFailed(*task, *fault);
      } else {
        parts_.events.dropped(*task);
      }
    }
    parts_.idle.changed();
  });
}

bool UploadControl::nothingWaits() {
  if (!parts_.queue.filenames().empty()) return false;
  const auto scheduler = parts_.configure.scheduler.load();
  if (!scheduler) return true;
  for (const auto& task : scheduler->storage()->localTasks()) {
    if (!parts_.queue.isHeld(task->filename())) return false;
  }
  return true;
}

}  // namespace qx
