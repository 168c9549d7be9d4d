#include "BackgroundRun.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "Advice.h"
#include "Classes/AWSCallbackStatus.h"
#include "Classes/Target_Uploader.h"
#include "Interrupts.h"
#include "Text.h"
#include "UploadCommand.h"
#include "platform/Hex.h"

namespace qx::app {
namespace {

/// The library gives a task up after this many failures.
constexpr std::int64_t kAttempts = 10;
/// The library's limit of concurrent uploads unless told otherwise.
constexpr std::int64_t kDefaultLimit = 6;
/// Without an outcome for this long, the log is looked at again.
constexpr double kQuietSeconds = 3;

std::string imageId(const std::string& itemId, const std::string& sha1) {
  return "image " + itemId + " " + sha1;
}

template <typename Map>
std::string textIn(const Map& map, std::string_view key) {
  const auto found = map.find(std::string(key));
  return found == map.end() ? std::string() : found->second;
}

/// The text by which the task of a file or image is recognised, whatever its content.
std::string sourceOf(const std::map<std::string, std::string>& extra) {
  const std::string file = textIn(extra, kFileExtra);
  if (!file.empty()) return "file " + file;
  return imageId(textIn(extra, "uuid"), textIn(extra, "OriginalImageSha1Key"));
}

/// The text by which the outcome of a task is recognised.
std::string idOf(const std::map<std::string, std::string>& extra) {
  const std::string task = textIn(extra, kTaskExtra);
  return task.empty() ? sourceOf(extra) : "task " + task;
}

std::map<std::string, std::string> textsOf(const StoredTask& task) {
  std::map<std::string, std::string> texts;
  for (const auto& [key, value] : task.extra) {
    if (const std::string* text = value.asText()) texts[key] = *text;
  }
  return texts;
}

/// True when an error tells whether the backend knows the task's scope: it did, unless it said so.
bool tellsOfScope(const Error& error) {
  return error.code != static_cast<std::int64_t>(AWSErrorCode::missParamters) &&
         error.code != static_cast<std::int64_t>(AWSErrorCode::serverError);
}

/// The path as an extra value: an XML log cannot hold every byte that a file name can.
std::string noteOf(const std::string& file) {
  std::error_code code;
  const auto absolute = std::filesystem::absolute(file, code);
  const std::string path = printable(code ? file : absolute.lexically_normal().string());
  const std::string json = Event(path).dump(-1, ' ', false, Event::error_handler_t::replace);
  return Event::parse(json).get<std::string>();
}

/// The image that a message tells the backend of.
std::string reportedImage(const APIRequest& message) {
  class FieldsAsTheyAre : public APIEncoder {
    OrderedMembers encode(OrderedMembers fields) const override { return fields; }
  };
  std::string itemId;
  std::string sha1;
  for (const auto& [key, value] : message.parseParamater(FieldsAsTheyAre())) {
    if (key == "item_id" && value.asInt()) itemId = std::to_string(*value.asInt());
    if (key == "original_image_sha1" && value.asText()) sha1 = *value.asText();
  }
  return imageId(itemId, sha1);
}

}  // namespace

BackgroundRun::BackgroundRun(const Context& context, std::optional<std::int64_t> concurrent)
    : Session(context), limit_(concurrent.value_or(kDefaultLimit)) {}

bool BackgroundRun::open(const OpenOptions& options) {
  const StoredTasks before = stored();
  if (context().forget) {
    if (!forget(before)) return false;
  } else {
    if (before.fault) out().note(*before.fault);
    adoptAll(before, options);
  }
  host().perform(
      "Action_RegisterBackground:",
      {{"callback", Value::callback<HostBackgroundCallback>(
                        [this](const std::string& scope, const std::optional<std::string>& url,
                               const std::map<std::string, std::string>& extra,
                               const std::optional<Error>& error) {
                          host().post([=, this] { ended(scope, url, extra, error); });
                        })}});
  host().perform("Action_SetMaxBackgroundConcurrent:", {{"count", limit_}});
  host().setUp(false, true);
  lastOutcome_ = now();
  timer_ = host().every(1, [this] { tick(); });
  return true;
}

bool BackgroundRun::forget(const StoredTasks& before) {
  std::optional<std::string> why = before.fault;
  if (!why && !before.tasks.empty()) {
    if (const auto error = log().drop(before.tasks)) why = error->description;
  }
  if (why) {
    out().failure({{"event", "failed"}, {"error", *why}},
                  "what earlier runs stored could not be dropped: " + *why +
                      "; nothing was uploaded, run the command without --forget");
    finish(kSomeFailed);
    return false;
  }
  if (!before.tasks.empty()) {
    out().note("dropped " + countText(before.tasks.size(), "stored task", "stored tasks") +
               " of earlier runs");
  }
  return true;
}

void BackgroundRun::adoptAll(const StoredTasks& before, const OpenOptions& options) {
  std::vector<StoredTask> again;
  for (const std::string& name : options.retried) {
    const auto found = std::ranges::find(before.tasks, name, &StoredTask::filename);
    if (found != before.tasks.end() && found->bytes) {
      again.push_back(*found);
    } else {
      failedBeforeStart(name, "is not stored; \"qxuploader tasks list\" tells the names",
                        {{"domain", "qxuploader"}, {"code", 0}, {"description", "not stored"}});
    }
  }
  const auto unreset = again.empty() ? std::nullopt : log().resetAttempts(again);
  if (unreset) out().note(unreset->description + "; the attempts made before still count");
  std::size_t others = 0;
  for (const StoredTask& task : before.tasks) {
    // The library drops a task whose data is gone: most likely it was just done.
    if (!task.bytes) continue;
    const bool named =
        std::ranges::find(again, task.filename, &StoredTask::filename) != again.end();
    adopt(task, named && !unreset ? 0 : task.attempts, named || options.allOfThisRun);
    if (!named) ++others;
  }
  if (others > 0) {
    out().note("going on with " + countText(others, "stored task", "stored tasks") +
               " of an earlier run");
  }
}

void BackgroundRun::adopt(const StoredTask& task, std::int64_t attempts, bool ofThisRun) {
  const auto texts = textsOf(task);
  add(idOf(texts),
      {.label = task.label(), .attempts = attempts, .adopted = true, .ofThisRun = ofThisRun});
  adopted_.emplace(sourceOf(texts), task);
}

BackgroundRun::Item& BackgroundRun::add(const std::string& id, Item item) {
  if (item.ofThisRun) ++untried_;
  ++active_;
  items_.push_back(std::move(item));
  byId_.emplace(id, &items_.back());
  return items_.back();
}

void BackgroundRun::store(Item& item, const std::string& action, const Dictionary& parameters) {
  WatchedFiles::takeFailureOfThisThread();
  host().perform(action, parameters);
  const auto failure = WatchedFiles::takeFailureOfThisThread();
  item.stored = !failure;
  if (failure) {
    ++unstored_;
    out().failure({{"event", "notStored"}, {"file", item.label}, {"error", errorFields(*failure)}},
                  item.label + " could not be stored: " + withAdvice(*failure) +
                      "; it is uploaded from memory, once");
  } else if (out().json()) {
    out().event({{"event", "queued"}, {"file", item.label}}, {});
  }
  changed();
}

std::optional<Data> BackgroundRun::bytesOf(const std::string& file) {
  auto data = readWholeFile(file);
  if (data) return *std::move(data);
  failedBeforeStart(file, readFailure(data.error()), errorFields(data.error()));
  return std::nullopt;
}

void BackgroundRun::failedBeforeStart(const std::string& file, const std::string& what,
                                      const Event& error) {
  ++failed_;
  ++refused_;
  out().failure({{"event", "failed"}, {"file", file}, {"error", error}}, file + " " + what);
  changed();
}

void BackgroundRun::submit(const std::string& file, const std::string& scope) {
  const auto data = bytesOf(file);
  if (!data) return;
  const std::string note = noteOf(file);
  std::map<std::string, std::string> extra = {{std::string(kFileExtra), note}};
  if (alreadyStored(sourceOf(extra), file, scope, *data, {})) return;
  extra[std::string(kTaskExtra)] = host().seams().uuid.random();
  store(add(idOf(extra), {.label = file}), "Action_BackgroundUpload:",
        {{"scope", scope},
         {"data", *data},
         {"suffix", suffixOf(file)},
         {"extra", Dictionary(extra.begin(), extra.end())}});
}

void BackgroundRun::submitImage(const std::string& file, const ImageOptions& options) {
  const auto data = bytesOf(file);
  if (!data) return;
  if (!host().seams().imageHeaders.size(*data)) {
    failedBeforeStart(file, "is not an image; \"background\" takes files of any kind",
                      {{"domain", "qxuploader"}, {"code", 0}, {"description", "not an image"}});
    return;
  }
  const std::string itemId = std::to_string(options.itemId);
  const std::string id = imageId(itemId, hex(host().seams().digests.sha1(data->text())));
  const Value tags = Array(options.tags.begin(), options.tags.end());
  // The tags as the library keeps them with a task.
  const std::string tagsText =
      options.tags.empty() ? "" : host().seams().json.encode(tags).value_or("");
  if (alreadyStored(
          id, file, options.scope, *data,
          {{"OriginalImageUseDetUploadKey", options.det ? "true" : "false"}, {"tags", tagsText}})) {
    return;
  }
  Dictionary parameters = {
      {"scope", options.scope}, {"data", *data}, {"itemId", itemId}, {"suffix", suffixOf(file)}};
  if (options.det) parameters["useDetUpload"] = "true";
  if (!options.tags.empty()) {
    parameters["tags"] = tags;
    parameters["updatePQS"] = true;
  }
  store(add(id, {.label = file}), "Action_BackgroundUploadImage:", parameters);
}

bool BackgroundRun::alreadyStored(const std::string& source, const std::string& file,
                                  const std::string& scope, const Data& bytes,
                                  const std::map<std::string, std::string>& extra) {
  const auto [first, last] = adopted_.equal_range(source);
  const auto same = std::find_if(first, last, [&](const auto& entry) {
    const StoredTask& task = entry.second;
    if (task.scope != scope || task.bytes != bytes.size()) return false;
    for (const auto& [key, text] : extra) {
      if (task.extraText(key) != text) return false;
    }
    const auto copy = readWholeFile(task.path);
    return copy && *copy == bytes;
  });
  if (same == last) return false;
  // Named now, so this run has to try it.
  if (Item* item = find(idOf(textsOf(same->second)));
      item != nullptr && !item->ofThisRun && !item->tried) {
    item->ofThisRun = true;
    ++untried_;
  }
  out().event({{"event", "alreadyStored"}, {"file", file}},
              file + " is stored already and will be uploaded");
  changed();
  return true;
}

BackgroundRun::Item* BackgroundRun::find(const std::string& id) {
  // Two tasks of one image look the same: one that waits for its next attempt must not take the
  // outcome that the run is waiting for.
  const auto urgency = [](const Item& item) {
    if (item.state == State::active) return item.ofThisRun ? 3 : 2;
    return item.state == State::retrying ? 1 : 0;
  };
  Item* best = nullptr;
  const auto [first, last] = byId_.equal_range(id);
  for (auto entry = first; entry != last; ++entry) {
    Item* item = entry->second;
    if (urgency(*item) > (best == nullptr ? 0 : urgency(*best))) best = item;
  }
  return best;
}

void BackgroundRun::setState(Item& item, State state) {
  const auto counter = [this](State of) -> std::size_t& {
    switch (of) {
      case State::active:
        return active_;
      case State::retrying:
        return retrying_;
      case State::done:
        return done_;
      case State::failed:
        break;
    }
    return failed_;
  };
  --counter(item.state);
  ++counter(state);
  item.state = state;
}

void BackgroundRun::ended(const std::string& scope, const std::optional<std::string>& url,
                          const std::map<std::string, std::string>& extra,
                          const std::optional<Error>& error) {
  if (finished()) return;
  lastOutcome_ = now();
  Item* item = find(idOf(extra));
  if (item == nullptr && byId_.contains(idOf(extra))) {
    // A second attempt of a task that has ended: the retry timer may find a task in the log before
    // it is in the queue. It is the same object, so there is nothing new to tell.
    return;
  }
  if (item == nullptr) {
    // Of an entry that the log did not show when this run began.
    add(idOf(extra), {.label = textIn(extra, kFileExtra), .ofThisRun = false});
    item = &items_.back();
  }
  if (item->ofThisRun && !item->tried) --untried_;
  item->tried = true;
  if (!error || tellsOfScope(*error)) {
    unknownScopes().note(
        scope, error && error->code == static_cast<std::int64_t>(AWSErrorCode::keyNotMatch));
  }
  if (!error) {
    setState(*item, State::done);
    const std::string shown = url.value_or("");
    out().event({{"event", "uploaded"},
                 {"file", item->label},
                 {"url", shown},
                 {"scope", scope},
                 {"itemId", textIn(extra, "itemId")}},
                item->label + " -> " + shown, Tone::good);
  } else {
    ++item->attempts;
    const bool givenUp = !item->stored || item->attempts >= kAttempts;
    setState(*item, givenUp ? State::failed : State::retrying);
    const std::string tail =
        !item->stored ? "; it could not be stored and is not tried again, hand it over again"
        : givenUp     ? "; given up after " + std::to_string(item->attempts) + " attempts"
                      : " (attempt " + std::to_string(item->attempts) + " of " +
                        std::to_string(kAttempts) + "; it stays stored and is tried again)";
    out().failure({{"event", givenUp ? "failed" : "attemptFailed"},
                   {"file", item->label},
                   {"attempts", item->attempts},
                   {"error", errorFields(*error)}},
                  "upload of " + item->label +
                      " failed: " + withAdvice(*error, host().backendStatus(*error)) + tail);
  }
  showLive();
  changed();
}

void BackgroundRun::onMessageEnded(const APIRequest& message, const std::optional<Error>& error) {
  const bool failedReport = error && message.api().starts_with("v3/item/");
  host().post([this, id = failedReport ? reportedImage(message) : "", error] {
    if (finished()) return;
    if (!id.empty()) {
      const auto item = byId_.find(id);
      if (item == byId_.end() || item->second->ofThisRun) ++unreported_;
      const std::string file = item == byId_.end() ? "an image" : item->second->label;
      out().failure({{"event", "reportFailed"}, {"file", file}, {"error", errorFields(*error)}},
                    "the backend was not told of " + file +
                        ", which is in the store: " + error->description + "; hand it over again");
    }
    changed();
  });
}

StoredLog BackgroundRun::log() {
  return {host().seams().files, host().seams().propertyLists, documents(), userId()};
}

std::string BackgroundRun::userId() {
  return context().settings.get("user_id").value_or("");
}

UnknownScopes& BackgroundRun::unknownScopes() {
  if (!unknownScopes_) {
    const Platform& seams = host().seams();
    unknownScopes_.emplace(seams.files, seams.json, documents(), userId());
  }
  return *unknownScopes_;
}

void BackgroundRun::tick() {
  if (finished()) return;
  if (!nothingLeft() && now() - lastOutcome_ > kQuietSeconds) dropForgotten();
  showLive();
  changed();
}

void BackgroundRun::dropForgotten() {
  lastOutcome_ = now();
  std::multimap<std::string, Item*> waiting;
  for (const auto& [id, item] : byId_) {
    // What is under way is in the log, but this run's is counted before it is stored.
    const bool adopted = item->state == State::active && item->adopted;
    if (adopted || item->state == State::retrying) waiting.emplace(id, item);
  }
  if (waiting.empty()) return;
  const StoredTasks left = stored();
  if (left.fault) return;
  for (const StoredTask& task : left.tasks) {
    if (const auto found = waiting.find(idOf(textsOf(task))); found != waiting.end()) {
      found->second->missed = false;
      waiting.erase(found);
    }
  }
  for (const auto& [id, item] : waiting) {
    // The outcome of one that is done may still be on its way here.
    if (!std::exchange(item->missed, true)) continue;
    if (item->ofThisRun && !std::exchange(item->tried, true)) --untried_;
    setState(*item, State::failed);
    out().failure({{"event", "failed"}, {"file", item->label}, {"attempts", item->attempts}},
                  item->label +
                      " is no longer stored and will not be tried again; hand it over "
                      "again");
  }
}

void BackgroundRun::showLive() {
  if (!out().terminal()) return;
  const bool reachable = host().reachability().isReachable();
  const std::size_t running =
      reachable ? std::min(active_, static_cast<std::size_t>(std::max<std::int64_t>(limit_, 1)))
                : 0;
  const std::size_t waiting = active_ - running + retrying_;
  std::string line = std::to_string(done_) + " done, " + std::to_string(running) + " running, " +
                     std::to_string(waiting) + " waiting, " + std::to_string(failed_) + " failed";
  if (!reachable) line += "; no network";
  out().live(cut(line, out().columns()));
}

void BackgroundRun::finishWithSummary() {
  const StoredTasks left = stored();
  out().endLive();
  std::string line = countText(done_, "file", "files") + " uploaded, " + std::to_string(failed_) +
                     " failed, " + std::to_string(left.tasks.size()) + " stored";
  if (!left.tasks.empty()) line += "; \"qxuploader background --wait\" goes on with them";
  // What earlier runs stored may never succeed: it must not turn every later run into a failure.
  const bool good =
      refused_ == 0 && unstored_ == 0 && unreported_ == 0 &&
      std::ranges::none_of(items_, [](const Item& item) {
        return item.ofThisRun && (item.state == State::failed || item.state == State::retrying);
      });
  out().event(
      {{"event", "summary"}, {"done", done_}, {"failed", failed_}, {"stored", left.tasks.size()}},
      line, good ? Tone::good : Tone::plain);
  finish(good ? kAllDone : kSomeFailed);
}

void BackgroundRun::interrupted() {
  const StoredTasks left = stored();
  std::size_t lost = notHandedOver();
  for (const Item& item : items_) {
    if (item.state == State::active && !item.stored) ++lost;
  }
  const std::string lostText = lost == 0
                                   ? ""
                                   : "; " + countText(lost, "named file is", "named files are") +
                                         " neither stored nor uploaded, hand them over again";
  out().endLive();
  out().failure({{"event", "interrupted"},
                 {"done", done_},
                 {"failed", failed_},
                 {"stored", left.tasks.size()},
                 {"bytes", left.bytes()},
                 {"notHandedOver", lost}},
                "interrupted; " + countText(left.tasks.size(), "task stays", "tasks stay") +
                    " stored (" + bytesText(left.bytes()) +
                    "); \"qxuploader background --wait\" goes on with them" + lostText);
  finish(kInterrupted);
}

}  // namespace qx::app
