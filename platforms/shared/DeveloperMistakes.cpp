#include "platforms/shared/DeveloperMistakes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "platform/Files.h"
#include "platform/Url.h"

namespace qx {
namespace {

constexpr std::size_t kLongestLine = 400;
constexpr std::string_view kProductionQuery = "QXConfig_currentEnvironmentIsProduction";

bool isText(const Value& value) {
  return value.asText() != nullptr;
}
bool isBoolean(const Value& value) {
  return value.asBool() != nullptr;
}
bool isUserId(const Value& value) {
  return isText(value) && (value.asText()->empty() || isPlainPathComponent(*value.asText()));
}
bool isServerAddress(const Value& value) {
  const std::string* text = value.asText();
  if (text == nullptr) return false;
  const std::optional<Url> url = Url::parse(*text);
  return text->empty() || (url && url->isHttp());
}

/// A selector that the library asks, and the form of the host's answer.
struct Selector {
  std::string_view name;
  bool (*fits)(const Value& answer);
  std::string_view type;
  /// What fails without an answer.
  std::string_view without;
};

constexpr std::array<Selector, 5> kSelectors = {{
    {"Account_GetUserId", isUserId, "a text that is one plain path component",
     "without it nothing is fetched or uploaded"},
    {"Account_GetAccessToken", isText, "a text", "without it nothing is fetched or uploaded"},
    {"QXConfig_getServerAddress", isServerAddress, "a URL that begins with https:// or http://",
     "without it nothing is fetched or uploaded"},
    {"QXConfig_GetAwsUploaderServerAddress", isServerAddress,
     "a URL that begins with https:// or http://",
     "without it no upload through the upload server succeeds"},
    {kProductionQuery, isBoolean, "a boolean",
     "log records are written only where the answer is false"},
}};

/// Selectors that a host may leave out without missing anything.
constexpr std::array<std::string_view, 2> kOptionalSelectors = {
    "Tracking_Event:parameters:", "Tracking_GetLongIdWithCompletion:"};

std::string quoted(std::string_view name) {
  return "\"" + std::string(name) + "\"";
}

/// The text as one line, whatever the host's names hold.
std::string asOneLine(std::string_view sentence) {
  std::string line = "qxawsuploader: " + std::string(sentence.substr(0, kLongestLine));
  std::ranges::replace_if(
      line, [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
  return line;
}

}  // namespace

DeveloperMistakes::DeveloperMistakes()
    : DeveloperMistakes(
          [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }) {}

DeveloperMistakes::DeveloperMistakes(std::function<void(const std::string& line)> write)
    : write_(std::move(write)) {}

void DeveloperMistakes::tell(std::string_view sentence) {
  const std::string line = asOneLine(sentence);
  {
    MutexLock lock(mutex_);
    if (!told_.insert(line).second) return;
  }
  write_(line);
}

void DeveloperMistakes::unknownTarget(std::string_view target) {
  tell("There is no target " + quoted(target) +
       ": the library's own is \"Target_Uploader\", known after "
       "qx::Target_Uploader::registerWith(mediator).");
}

void DeveloperMistakes::unknownAction(std::string_view target, std::string_view action) {
  tell(quoted(target) + " has no action " + quoted(action) +
       (action.ends_with(':') ? "." : ": the name of an action ends with a colon."));
}

void DeveloperMistakes::unanswered(std::string_view selector, bool hasLogger) {
  if (std::ranges::find(kOptionalSelectors, selector) != kOptionalSelectors.end()) return;
  if (selector == kProductionQuery && !hasLogger) return;
  const auto* known = std::ranges::find(kSelectors, selector, &Selector::name);
  tell("Nobody answers " + quoted(selector) +
       (known != kSelectors.end() ? ": " + std::string(known->without) + "." : "."));
}

void DeveloperMistakes::answered(std::string_view selector, const Value& answer) {
  const auto* known = std::ranges::find(kSelectors, selector, &Selector::name);
  if (known == kSelectors.end() || answer.isNull() || known->fits(answer)) return;
  tell("The answer to " + quoted(selector) + " must be " + std::string(known->type) + ".");
}

void DeveloperMistakes::mainQueueAt(std::uint64_t put, std::uint64_t started) {
  const bool waits = put > started;
  {
    MutexLock lock(mutex_);
    const bool waitedBefore = startedWhileWaiting_ == started;
    startedWhileWaiting_ = waits ? std::optional(started) : std::nullopt;
    if (!waits || !waitedBefore) return;
  }
  tell(
      "Work has waited on the main queue for seconds: call runMainQueue() on the main thread, or "
      "run what mainQueuePoster is given.");
}

void DeveloperMistakes::mainQueueAtTheEnd(std::uint64_t put, std::uint64_t started) {
  if (put == 0 || started > 0) return;
  tell(
      "The platform ends and nobody ever ran its main queue, so the end of an upload went unheard: "
      "call runMainQueue() before main returns.");
}

}  // namespace qx
