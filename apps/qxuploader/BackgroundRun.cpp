#include "BackgroundRun.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Advice.h"
#include "Classes/AWSCallbackStatus.h"
#include "Classes/Target_UploadQueue.h"
#include "HostEvent.h"
#include "Interrupts.h"
#include "Text.h"
#include "UploadCommand.h"

namespace qx::app {
namespace {

/// The number of failures after which the library gives a task up.
constexpr std::int64_t kAttempts = 10;
/// The library's default limit of concurrent uploads.
constexpr std::int64_t kDefaultLimit = 6;

/// Tells from an error whether the backend knows the scope of the task: it does unless the error
/// says that it does not.
bool tellsOfScope(const Error& error) {
  return error.code != static_cast<std::int64_t>(AWSErrorCode::missParamters) &&
         error.code != static_cast<std::int64_t>(AWSErrorCode::serverError);
}

}  // namespace

BackgroundRun::BackgroundRun(const Context& context, std::optional<std::int64_t> concurrent)
    : Session(context), limit_(concurrent.value_or(kDefaultLimit)) {}

void BackgroundRun::open(OpenOptions options) {
  options_ = std::move(options);
  host().listStored([this](const std::vector<ListedTask>& tasks) { listed(tasks); });
}

void BackgroundRun::listed(const std::vector<ListedTask>& tasks) {
  if (ending()) return;
  auto fault = std::exchange(unavailable_, std::nullopt);
  if (fault) fault->description = unreadableText(*fault);
  if (context().forget) {
    if (fault) return cannotForget(*fault);
    return forget(tasks);
  }
  if (fault) out().note(fault->description);
  for (const ListedTask& task : tasks) {
    if (!task.stray) continue;
    lost(add({.label = task.label,
              .scope = task.scope,
              .ofThisRun = options_.allOfThisRun,
              .attempts = task.attempts}));
  }
  setUp();
}

void BackgroundRun::forget(const std::vector<ListedTask>& tasks) {
  if (tasks.empty()) return setUp();
  Array names;
  for (const ListedTask& task : tasks) {
    names.emplace_back(task.name);
    forgetting_.insert(task.name);
  }
  host().perform(kUploadQueue, "Action_Drop:", {{"names", std::move(names)}});
  // The list comes after the events of the dropping.
  host().listStored([this](const std::vector<ListedTask>&) { forgot(); });
}

void BackgroundRun::forgot() {
  if (ending()) return;
  if (const auto fault = std::exchange(unavailable_, std::nullopt)) return cannotForget(*fault);
  if (unforgotten_) return cannotForget(*unforgotten_);
  out().note("dropped " + countText(forgetting_.size(), "stored task", "stored tasks") +
             " of earlier runs");
  setUp();
}

void BackgroundRun::cannotForget(const Error& why) {
  if (refusesStored(why)) {
    tellRefusal(why);
  } else {
    out().failure({{"event", "failed"}, {"error", why.description}},
                  "what earlier runs stored could not be dropped: " + why.description +
                      "; nothing was uploaded, run the command without --forget");
  }
  finish(kSomeFailed);
}

void BackgroundRun::setUp() {
  // No task starts before this run knows it.
  host().perform(kUploadQueue, "Action_Pause:");
  host().perform(kUploader, "Action_SetMaxBackgroundConcurrent:", {{"count", limit_}});
  host().setUp(false, true);
  host().listStored([this](const std::vector<ListedTask>& tasks) { takeUp(tasks); });
}

void BackgroundRun::takeUp(const std::vector<ListedTask>& tasks) {
  if (ending()) return;
  // If nothing can be stored for another reason, each task says so when it is passed to the
  // library.
  if (unavailable_ && refusesStored(*unavailable_)) {
    tellRefusal(*unavailable_);
    return finish(kSomeFailed);
  }
  retry(tasks);
  const auto isRetried = [this](const std::string& name) {
    return std::ranges::find(options_.retried, name) != options_.retried.end();
  };
  std::size_t others = 0;
  for (const ListedTask& task : tasks) {
    const bool named = isRetried(task.name);
    Item& item = add({.label = task.label,
                      .scope = task.scope,
                      .ofThisRun = named || options_.allOfThisRun,
                      .isImage = task.isImage,
                      .attempts = task.attempts});
    byName_[task.name] = &item;
    adopted_.emplace(task.tag, &item);
    if (!named) ++others;
  }
  if (others > 0) {
    out().note("going on with " + countText(others, "stored task", "stored tasks") +
               " of an earlier run");
  }
  host().perform(kUploadQueue, "Action_Resume:");
  timer_ = host().every(1, [this] { tick(); });
  opened();
}

void BackgroundRun::retry(const std::vector<ListedTask>& tasks) {
  Array names;
  for (const std::string& name : options_.retried) {
    const auto found = std::ranges::find(tasks, name, &ListedTask::name);
    if (found != tasks.end() && found->fault.empty()) {
      names.emplace_back(name);
    } else {
      failedBeforeStart(name, "is not stored; \"qxuploader tasks list\" tells the names",
                        {{"domain", "qxuploader"}, {"code", 0}, {"description", "not stored"}});
    }
  }
  if (!names.empty()) {
    host().perform(kUploadQueue, "Action_Retry:", {{"names", std::move(names)}});
  }
}

BackgroundRun::Item& BackgroundRun::add(Item item) {
  if (item.ofThisRun) ++untried_;
  ++active_;
  return items_.emplace_back(std::move(item));
}

std::optional<Data> BackgroundRun::contentOf(const std::string& file, const ImageItem* item) {
  auto data = readWholeFile(file);
  if (!data) {
    failedBeforeStart(file, readFailure(data.error()), errorFields(data.error()));
    return std::nullopt;
  }
  if (item != nullptr && !host().seams().imageHeaders.size(*data)) {
    failedBeforeStart(file, "is not an image; \"background\" takes files of any kind",
                      {{"domain", "qxuploader"}, {"code", 0}, {"description", "not an image"}});
    return std::nullopt;
  }
  return *std::move(data);
}

void BackgroundRun::failedBeforeStart(const std::string& file, const std::string& what,
                                      const Event& error) {
  ++failed_;
  ++refused_;
  out().failure({{"event", "failed"}, {"file", file}, {"error", error}}, file + " " + what);
  changed();
}

void BackgroundRun::submit(const std::string& file, const std::string& scope,
                           const ImageItem* item) {
  const auto data = contentOf(file, item);
  if (!data) return;
  const std::string tag = uploadTag(host().seams().digests, file, *data, item);
  if (alreadyStored(file, scope, tag)) return;
  handedOver_[tag].push_back(&add({.label = file, .scope = scope, .isImage = item != nullptr}));
  Dictionary parameters = {
      {"scope", scope}, {"data", *data}, {"suffix", suffixOf(file)}, {"tag", tag}};
  if (item == nullptr) return host().perform(kUploader, "Action_BackgroundUpload:", parameters);
  parameters["itemId"] = std::to_string(item->itemId);
  if (item->det) parameters["useDetUpload"] = "true";
  if (!item->tags.empty()) {
    parameters["tags"] = Array(item->tags.begin(), item->tags.end());
    parameters["updatePQS"] = true;
  }
  host().perform(kUploader, "Action_BackgroundUploadImage:", parameters);
}

bool BackgroundRun::alreadyStored(const std::string& file, const std::string& scope,
                                  const std::string& tag) {
  const auto [first, last] = adopted_.equal_range(tag);
  const auto same = std::find_if(first, last, [&](const auto& entry) {
    const Item& item = *entry.second;
    return item.scope == scope && (item.state == State::active || item.state == State::retrying);
  });
  if (same == last) return false;
  // The user has named the file now, so this run has to try it.
  Item& item = *same->second;
  if (!std::exchange(item.ofThisRun, true) && !item.tried) ++untried_;
  out().event({{"event", "alreadyStored"}, {"file", file}},
              file + " is stored already and will be uploaded");
  changed();
  return true;
}

void BackgroundRun::onEvent(const Dictionary& event) {
  using Handler = void (BackgroundRun::*)(const Dictionary&);
  static constexpr std::array<std::pair<std::string_view, Handler>, 10> kHandlers = {{
      {"accepted", &BackgroundRun::accepted},
      {"started", &BackgroundRun::started},
      {"attemptFailed", &BackgroundRun::attemptFailed},
      {"givenUp", &BackgroundRun::givenUp},
      {"uploaded", &BackgroundRun::uploaded},
      {"dropped", &BackgroundRun::dropped},
      {"dropFailed", &BackgroundRun::dropFailed},
      {"imageReported", &BackgroundRun::imageReported},
      {"imageReportFailed", &BackgroundRun::imageReportFailed},
      {"storeUnavailable", &BackgroundRun::storeUnavailable},
  }};
  if (finished()) return;
  const std::string name = textOf(event, "event");
  const auto* handler =
      std::ranges::find(kHandlers, name, [](const auto& each) { return each.first; });
  if (handler == kHandlers.end()) return;
  (this->*handler->second)(event);
  showLive();
  if (!ending_) changed();
}

BackgroundRun::Item& BackgroundRun::itemOf(const Dictionary& event) {
  const std::string name = textOf(event, "name");
  if (const auto known = byName_.find(name); known != byName_.end()) return *known->second;
  const std::string tag = textOf(event, "tag");
  const auto waiting = handedOver_.find(tag);
  Item* item = nullptr;
  if (waiting != handedOver_.end()) {
    item = waiting->second.front();
    waiting->second.pop_front();
    if (waiting->second.empty()) handedOver_.erase(waiting);
  } else {
    const std::string file = fileOfTag(tag);
    item = &add(
        {.label = file.empty() ? name : file, .scope = textOf(event, "scope"), .ofThisRun = false});
  }
  byName_[name] = item;
  return *item;
}

void BackgroundRun::accepted(const Dictionary& event) {
  Item& item = itemOf(event);
  item.stored = flagOf(event, "stored");
  if (item.stored) {
    if (out().json()) out().event({{"event", "queued"}, {"file", item.label}}, {});
    return;
  }
  ++unstored_;
  const Error why = errorOf(event);
  out().failure({{"event", "notStored"}, {"file", item.label}, {"error", errorFields(why)}},
                item.label + " could not be stored: " + withAdvice(why) +
                    "; it is uploaded from memory, once");
}

void BackgroundRun::started(const Dictionary& event) {
  Item& item = itemOf(event);
  if (!std::exchange(item.running, true)) ++running_;
}

void BackgroundRun::tried(Item& item) {
  if (std::exchange(item.running, false)) --running_;
  if (!std::exchange(item.tried, true) && item.ofThisRun) --untried_;
}

void BackgroundRun::attemptFailed(const Dictionary& event) {
  // Attempts that the end of this run has interrupted have not failed.
  if (ending_ && flagOf(event, "cancelled")) return;
  Item& item = itemOf(event);
  tried(item);
  item.attempts = numberOf(event, "attempt");
  const Error why = errorOf(event);
  item.backendStatus = backendStatusOf(event);
  if (tellsOfScope(why)) {
    unknownScopes().note(item.scope,
                         why.code == static_cast<std::int64_t>(AWSErrorCode::keyNotMatch));
  }
  // After the last attempt, the event "givenUp" says the rest.
  if (!event.contains("nextTry")) return;
  failed(item, State::retrying, event,
         " (attempt " + std::to_string(item.attempts) + " of " + std::to_string(kAttempts) +
             "; it stays stored and is tried again)");
}

void BackgroundRun::givenUp(const Dictionary& event) {
  Item& item = itemOf(event);
  item.attempts = numberOf(event, "attempt");
  failed(item, State::failed, event,
         item.stored ? "; given up after " + std::to_string(item.attempts) + " attempts"
                     : "; it could not be stored and is not tried again, hand it over again");
}

void BackgroundRun::failed(Item& item, State state, const Dictionary& event,
                           const std::string& tail) {
  setState(item, state);
  const Error why = errorOf(event);
  out().failure(
      {{"event", state == State::failed ? "failed" : "attemptFailed"},
       {"file", item.label},
       {"attempts", item.attempts},
       {"error", errorFields(why)}},
      "upload of " + item.label + " failed: " + withAdvice(why, item.backendStatus) + tail);
}

void BackgroundRun::uploaded(const Dictionary& event) {
  Item& item = itemOf(event);
  tried(item);
  setState(item, State::done);
  unknownScopes().note(item.scope, false);
  const std::string url = textOf(event, "url");
  if (item.isImage) reporting_[url] = &item;
  out().event({{"event", "uploaded"},
               {"file", item.label},
               {"url", url},
               {"scope", item.scope},
               {"itemId", std::to_string(numberOf(event, "itemId"))}},
              item.label + " -> " + url, Tone::good);
}

BackgroundRun::Item* BackgroundRun::reported(const Dictionary& event) {
  const auto image = reporting_.find(textOf(event, "url"));
  if (image == reporting_.end()) return nullptr;
  Item* item = image->second;
  reporting_.erase(image);
  return item;
}

void BackgroundRun::imageReported(const Dictionary& event) {
  reported(event);
}

void BackgroundRun::imageReportFailed(const Dictionary& event) {
  const Item* item = reported(event);
  if (item == nullptr || item->ofThisRun) ++unreported_;
  const std::string file = item == nullptr ? "an image" : item->label;
  const Error why = errorOf(event);
  out().failure({{"event", "reportFailed"}, {"file", file}, {"error", errorFields(why)}},
                "the backend was not told of " + file +
                    ", which is in the store: " + why.description + "; hand it over again");
}

void BackgroundRun::dropped(const Dictionary& event) {
  if (!forgetting_.contains(textOf(event, "name"))) lost(itemOf(event));
}

void BackgroundRun::dropFailed(const Dictionary& event) {
  unforgotten_ = errorOf(event);
}

void BackgroundRun::storeUnavailable(const Dictionary& event) {
  unavailable_ = errorOf(event);
}

void BackgroundRun::lost(Item& item) {
  if (item.state == State::done || item.state == State::failed) return;
  tried(item);
  setState(item, State::failed);
  out().failure(
      {{"event", "failed"}, {"file", item.label}, {"attempts", item.attempts}},
      item.label + " is no longer stored and will not be tried again; hand it over again");
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

UnknownScopes& BackgroundRun::unknownScopes() {
  if (!unknownScopes_) {
    const Platform& seams = host().seams();
    unknownScopes_.emplace(seams.files, seams.json, documents(), userId());
  }
  return *unknownScopes_;
}

void BackgroundRun::tick() {
  if (ending()) return;
  showLive();
  changed();
}

void BackgroundRun::showLive() {
  if (!out().terminal()) return;
  const std::size_t waiting = active_ + retrying_ - running_;
  std::string line = std::to_string(done_) + " done, " + std::to_string(running_) + " running, " +
                     std::to_string(waiting) + " waiting, " + std::to_string(failed_) + " failed";
  if (!host().reachability().isReachable()) line += "; no network";
  out().live(cut(line, out().columns()));
}

void BackgroundRun::finishWhenIdle() {
  host().perform(kUploadQueue, "Action_WhenIdle:", {{"complete", Value::callback<HostIdle>([this] {
                                                       host().post([this] {
                                                         if (ending()) return;
                                                         for (Item& item : items_) lost(item);
                                                         finishWithSummary();
                                                       });
                                                     })}});
}

void BackgroundRun::finishWithSummary() {
  ending_ = true;
  // The list comes after all events told so far.
  host().listStored([this](const std::vector<ListedTask>& left) { endWithSummary(left.size()); });
}

void BackgroundRun::endWithSummary(std::size_t stored) {
  out().endLive();
  std::string line = countText(done_, "file", "files") + " uploaded, " + std::to_string(failed_) +
                     " failed, " + std::to_string(stored) + " stored";
  if (stored > 0) line += "; \"qxuploader background --wait\" goes on with them";
  // Tasks of earlier runs may never succeed. They must not make every later run fail.
  const bool good =
      refused_ == 0 && unstored_ == 0 && unreported_ == 0 &&
      std::ranges::none_of(items_, [](const Item& item) {
        return item.ofThisRun && (item.state == State::failed || item.state == State::retrying);
      });
  out().event({{"event", "summary"}, {"done", done_}, {"failed", failed_}, {"stored", stored}},
              line, good ? Tone::good : Tone::plain);
  finish(good ? kAllDone : kSomeFailed);
}

void BackgroundRun::interrupted() {
  // The final message is on its way.
  if (ending_) return;
  ending_ = true;
  host().perform(kUploadQueue, "Action_Pause:", {{"cancelRunning", true}});
  host().listStored([this](const std::vector<ListedTask>& left) {
    const std::size_t lost =
        notHandedOver() +
        static_cast<std::size_t>(std::ranges::count_if(
            items_, [](const Item& item) { return item.state == State::active && !item.stored; }));
    const std::string lostText = lost == 0
                                     ? ""
                                     : "; " + countText(lost, "named file is", "named files are") +
                                           " neither stored nor uploaded, hand them over again";
    out().endLive();
    out().failure({{"event", "interrupted"},
                   {"done", done_},
                   {"failed", failed_},
                   {"stored", left.size()},
                   {"bytes", bytesOf(left)},
                   {"notHandedOver", lost}},
                  "interrupted; " + countText(left.size(), "task stays", "tasks stay") +
                      " stored (" + bytesText(bytesOf(left)) +
                      "); \"qxuploader background --wait\" goes on with them" + lostText);
    finish(kInterrupted);
  });
}

}  // namespace qx::app
