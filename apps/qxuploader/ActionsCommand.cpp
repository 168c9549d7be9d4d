#include "ActionsCommand.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Advice.h"
#include "Classes/Target_UploadQueue.h"
#include "Classes/Target_Uploader.h"
#include "InputLines.h"
#include "Interrupts.h"
#include "QueueName.h"
#include "platform/Formats.h"

namespace qx::app {
namespace {

Event eventOf(const Value& value) {
  if (const bool* v = value.asBool()) return *v;
  if (const std::int64_t* v = value.asInt()) return *v;
  if (const std::uint64_t* v = value.asUInt()) return *v;
  if (const double* v = value.asDouble()) return *v;
  if (const std::string* v = value.asText()) return *v;
  if (const Date* v = value.asDate()) return v->secondsSince1970;
  if (const Data* v = value.asData()) return {{"bytes", v->size()}};
  if (const Array* v = value.asArray()) {
    Event list = Event::array();
    for (const Value& element : *v) list.push_back(eventOf(element));
    return list;
  }
  if (const Dictionary* v = value.asDictionary()) {
    Event object = Event::object();
    for (const auto& [key, element] : *v) object[key] = eventOf(element);
    return object;
  }
  return nullptr;
}

Event textOrNull(const std::optional<std::string>& text) {
  return text ? Event(*text) : Event();
}

/// The target of a line, which need not name one.
Result<std::string_view> targetOf(const Dictionary& line) {
  const auto named = line.find("target");
  if (named == line.end()) return kUploader;
  const std::string* name = named->second.asText();
  for (const std::string_view target : {kUploader, kUploadQueue}) {
    // The name may begin with "Target_" or not.
    if (name != nullptr && (*name == target || "Target_" + *name == target)) return target;
  }
  return Error{"qxuploader", 0, "\"target\" is neither \"Uploader\" nor \"UploadQueue\""};
}

Event errorOrNull(const std::optional<Error>& error) {
  return error ? errorFields(*error) : Event();
}

}  // namespace

class ActionsCommand::Expectation {
 public:
  Expectation(ActionsCommand& owner, std::string name) : owner_(owner), name_(std::move(name)) {
    ++owner_.expected_;
  }
  Expectation(const Expectation&) = delete;
  Expectation& operator=(const Expectation&) = delete;
  ~Expectation() { settle(false); }

  void met() { settle(true); }

 private:
  void settle(bool called) {
    if (settled_.exchange(true)) return;
    if (!called) owner_.emit({{"event", "dropped"}, {"callback", name_}});
    --owner_.expected_;
    owner_.host().post([owner = &owner_] { owner->finishWhenQuiet(); });
  }

  ActionsCommand& owner_;
  const std::string name_;
  std::atomic<bool> settled_ = false;
};

ActionsCommand::ActionsCommand(const Context& context) : Session(context) {}

ActionsCommand::~ActionsCommand() {
  stop_.set();
  if (reader_.joinable()) reader_.join();
}

void ActionsCommand::begin() {
  rememberMainThread();
  reader_ = std::thread([this] { readLines(); });
}

std::shared_ptr<void> ActionsCommand::takeRoom(std::size_t size) {
  const std::size_t room = std::min(size / kRoomBytes + 1, kRoom);
  for (std::size_t taken = 0; taken < room; ++taken) room_.acquire();
  return {nullptr, [this, room](void*) { room_.release(static_cast<std::ptrdiff_t>(room)); }};
}

void ActionsCommand::readLines() {
  InputLines lines(STDIN_FILENO, stop_);
  std::string line;
  for (std::uint64_t number = 1;; ++number) {
    const InputLines::Next next = lines.next(line);
    if (next == InputLines::Next::end) break;
    if (next == InputLines::Next::tooLong) {
      host().post([this, number] { wrongLine(number, "longer than 64 MiB"); });
      continue;
    }
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    // The room is given back when the line has been taken, or dropped at the end of the run.
    host().post([this, line, number, room = takeRoom(line.size())] { take(line, number); });
  }
  host().post([this] { inputEnded(); });
}

void ActionsCommand::take(const std::string& line, std::uint64_t number) {
  const auto value = host().seams().json.decode(Data(line));
  if (!value) {
    wrongLine(number, "not JSON: " + value.error().description);
    return;
  }
  const Dictionary* object = value->asDictionary();
  if (object == nullptr) {
    wrongLine(number, "not a JSON object");
  } else if (object->contains("action")) {
    takeAction(*object, number);
  } else if (const auto changes = readDictionary(*object, "host")) {
    takeHost(*changes, number);
  } else {
    wrongLine(number, "neither \"action\" nor an object \"host\"");
  }
}

void ActionsCommand::takeAction(const Dictionary& line, std::uint64_t number) {
  const auto name = readText(line, "action");
  if (!name) {
    wrongLine(number, "\"action\" is not a text");
    return;
  }
  const auto params = line.find("params");
  if (params != line.end() && !params->second.asDictionary()) {
    wrongLine(number, "\"params\" is not an object");
    return;
  }
  const auto target = targetOf(line);
  if (!target) {
    wrongLine(number, target.error().description);
    return;
  }
  const std::string action = actionName(*name);
  const auto parameters = actionParameters(
      action, params == line.end() ? Dictionary() : *params->second.asDictionary(),
      [this](const std::string& a, const std::string& key, const std::string& callback) {
        return makeCallback(a, key, callback);
      });
  if (!parameters) {
    wrongLine(number, parameters.error().description);
    return;
  }
  host().perform(*target, action, *parameters);
}

void ActionsCommand::takeHost(const Dictionary& changes, std::uint64_t number) {
  bool userChanged = false;
  for (const auto& [name, value] : changes) {
    if (name == "reachable") {
      if (!value.isNull() && !value.asBool()) {
        wrongLine(number, "\"reachable\" is not true, false or null");
        continue;
      }
      host().reachability().override(value.isNull() ? std::nullopt
                                                    : std::optional(*value.asBool()));
    } else if (name == "userChanged") {
      userChanged = value == Value(true);
    } else if (!host().answers().set(name, value)) {
      wrongLine(number, "the host has no answer \"" + name + "\"");
    }
  }
  // The action is sent last, so that the library finds the answers of the same line.
  if (userChanged) host().postUserChanged();
}

Value ActionsCommand::makeCallback(const std::string& action, const std::string& key,
                                   const std::string& name) {
  if (action == "Action_Upload:" && key == "complete") {
    return Value::callback<HostUploadComplete>([this, name,
                                                expectation =
                                                    std::make_shared<Expectation>(*this, name)](
                                                   const std::optional<std::string>& url,
                                                   std::int64_t itemId,
                                                   const std::optional<Error>& error) {
      called(name, {{"url", textOrNull(url)}, {"itemId", itemId}, {"error", errorOrNull(error)}});
      expectation->met();
    });
  }
  if (action == "Action_Observe:" && key == "events") {
    return Value::callback<HostEvents>([this, name](const Dictionary& event) {
      called(name, {{"event", eventOf(event)}});
    });
  }
  if (action == "Action_List:" && key == "complete") {
    return Value::callback<HostTaskList>(
        [this, name, expectation = std::make_shared<Expectation>(*this, name)](const Array& tasks) {
          called(name, {{"tasks", eventOf(tasks)}});
          expectation->met();
        });
  }
  if (action == "Action_WhenIdle:" && key == "complete") {
    return Value::callback<HostIdle>(
        [this, name, expectation = std::make_shared<Expectation>(*this, name)] {
          called(name, Event::object());
          expectation->met();
        });
  }
  if (action == "Action_RegisterBackground:" && key == "callback") {
    return Value::callback<HostBackgroundCallback>(
        [this, name](const std::string& scope, const std::optional<std::string>& url,
                     const std::map<std::string, std::string>& extra,
                     const std::optional<Error>& error) {
          called(name, {{"scope", scope},
                        {"url", textOrNull(url)},
                        {"extra", extra},
                        {"error", errorOrNull(error)}});
        });
  }
  if (action == "Action_Download:" && key == "progress") {
    return Value::callback<HostDownloadProgress>([this, name](double fraction) {
      called(name, {{"fraction", fraction}});
    });
  }
  if (action == "Action_Download:" && key == "complete") {
    return Value::callback<HostDownloadComplete>(
        [this, name, expectation = std::make_shared<Expectation>(*this, name)](
            const std::optional<Url>& location, const std::optional<Error>& error) {
          called(name, {{"location", location ? Event(location->text()) : Event()},
                        {"error", errorOrNull(error)}});
          expectation->met();
        });
  }
  // No action has a callback under this key. It gets one all the same, of a type that no action
  // expects.
  return Value::callback<void()>([this, name] { called(name, Event::object()); });
}

void ActionsCommand::called(const std::string& name, Event arguments) {
  emit({{"event", "callback"}, {"callback", name}, {"arguments", std::move(arguments)}});
}

void ActionsCommand::onLog(const LogRecord& record) {
  emit({{"event", "log"},
        {"level", record.level},
        {"message", record.message},
        {"module", record.module},
        {"source", record.source},
        {"function", record.function},
        {"line", record.line}});
}

void ActionsCommand::onTracking(const Dictionary& parameters, const std::string& name) {
  emit({{"event", "tracking"}, {"name", name}, {"parameters", eventOf(parameters)}});
}

void ActionsCommand::onTag(std::string_view call, const Dictionary& arguments) {
  emit({{"event", "tag"}, {"call", call}, {"arguments", eventOf(arguments)}});
}

void ActionsCommand::onUnknownAction(std::string_view action) {
  emit({{"event", "unknownAction"}, {"action", action}});
}

void ActionsCommand::wrongLine(std::uint64_t number, const std::string& why) {
  refused_ = true;
  emit({{"event", "error"}, {"line", number}, {"message", why}});
}

void ActionsCommand::emit(Event event) {
  event["queue"] = currentQueueName();
  host().post([this, event = std::move(event), time = now()] {
    Event numbered;
    numbered["n"] = ++number_;
    numbered["time"] = time;
    numbered.update(event);
    // Nobody reads the output any more, so nobody waits for the outcome of the actions.
    if (!out().writeEvent(numbered)) finish(kSomeFailed);
  });
}

void ActionsCommand::inputEnded() {
  inputEnded_ = true;
  finishWhenQuiet();
}

void ActionsCommand::finishWhenQuiet() {
  // Runs after the work that the last action has posted meanwhile.
  if (inputEnded_ && expected_ == 0)
    host().post([this] { finish(refused_ ? kSomeFailed : kAllDone); });
}

void ActionsCommand::interrupted() {
  finish(kInterrupted);
}

}  // namespace qx::app
