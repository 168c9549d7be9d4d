#include "UploadCommand.h"

#include <algorithm>
#include <cctype>

#include "Advice.h"
#include "Classes/Target_Uploader.h"
#include "HostEvent.h"
#include "Interrupts.h"
#include "Text.h"

namespace qx::app {
namespace {

/// Each running upload holds its file in memory.
constexpr std::size_t kRunningAtOnce = 4;

}  // namespace

std::string suffixOf(const std::string& path) {
  const std::string name = baseName(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "bin";
  const std::string suffix = name.substr(dot + 1);
  const bool plain = std::all_of(suffix.begin(), suffix.end(), [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) || c == '_' || c == '-');
  });
  return !suffix.empty() && suffix.size() <= 16 && plain ? suffix : "bin";
}

UploadCommand::UploadCommand(const Context& context, UploadOptions options)
    : Session(context), options_(std::move(options)) {}

void UploadCommand::begin() {
  if (!makeDocuments()) return;
  // The tasks of earlier runs stay stored.
  host().perform(kUploadQueue, "Action_Pause:");
  host().setUp(options_.serverResize, false);
  showLive();
  startMore();
}

void UploadCommand::startMore() {
  while (running_.size() < kRunningAtOnce && next_ < options_.files.size()) start(next_++);
  if (running_.empty() && next_ == options_.files.size()) {
    finish(failed_ == 0 ? kAllDone : kSomeFailed);
  }
}

void UploadCommand::start(std::size_t index) {
  const std::string& file = options_.files[index];
  auto data = readWholeFile(file);
  if (!data) {
    ++failed_;
    out().failure({{"event", "failed"}, {"file", file}, {"error", errorFields(data.error())}},
                  file + " " + readFailure(data.error()));
    return;
  }
  const std::string tag = std::to_string(index);
  running_[tag];
  Dictionary parameters = {{"scope", options_.scope},
                           {"data", *std::move(data)},
                           {"suffix", suffixOf(file)},
                           {"tag", tag},
                           // The action requires a callback, but the event of the outcome tells
                           // more.
                           {"complete", Value::callback<HostUploadComplete>(
                                            [](const std::optional<std::string>&, std::int64_t,
                                               const std::optional<Error>&) {})}};
  const ItemOptions& item = options_.item;
  if (item.itemType) parameters["itemType"] = *item.itemType;
  if (item.itemId) parameters["itemId"] = std::to_string(*item.itemId);
  if (item.imageFrom) parameters["imageFrom"] = *item.imageFrom;
  if (!item.tags.empty()) parameters["tags"] = Array(item.tags.begin(), item.tags.end());
  if (!item.fields.empty()) {
    Dictionary fields;
    for (const std::string& field : item.fields) {
      const std::size_t equals = field.find('=');
      fields[field.substr(0, equals)] = field.substr(equals + 1);
    }
    parameters["fields"] = std::move(fields);
  }
  host().perform(kUploader, "Action_Upload:", parameters);
}

void UploadCommand::onEvent(const Dictionary& event) {
  const auto upload = running_.find(textOf(event, "tag"));
  if (finished() || upload == running_.end()) return;
  const std::string name = textOf(event, "event");
  const std::string& file = options_.files[std::stoul(upload->first)];
  if (name == "accepted") {
    upload->second = textOf(event, "name");
  } else if (name == "attemptFailed") {
    ++failed_;
    const Error why = errorOf(event);
    out().failure({{"event", "failed"}, {"file", file}, {"error", errorFields(why)}},
                  "upload of " + file + " failed: " + withAdvice(why, backendStatusOf(event)));
    running_.erase(upload);
    ended();
  } else if (name == "uploaded") {
    ++done_;
    const std::string url = textOf(event, "url");
    const std::int64_t itemId = numberOf(event, "itemId");
    out().event({{"event", "uploaded"}, {"file", file}, {"url", url}, {"itemId", itemId}},
                file + " -> " + url + " (item " + std::to_string(itemId) + ")", Tone::good);
    running_.erase(upload);
    ended();
  }
}

void UploadCommand::ended() {
  showLive();
  startMore();
}

void UploadCommand::showLive() {
  out().live(cut("uploading: " + std::to_string(done_ + failed_) + " of " +
                     std::to_string(options_.files.size()),
                 out().columns()));
}

void UploadCommand::interrupted() {
  Array names;
  for (const auto& [tag, name] : running_) names.emplace_back(name);
  host().perform(kUploadQueue, "Action_Cancel:", {{"names", std::move(names)}});
  const std::size_t left = options_.files.size() - done_ - failed_;
  out().endLive();
  out().failure({{"event", "interrupted"}, {"done", done_}, {"failed", failed_}, {"left", left}},
                "interrupted; " + std::to_string(done_) + " of " +
                    countText(options_.files.size(), "file", "files") +
                    " uploaded; run the command again for the others");
  finish(kInterrupted);
}

}  // namespace qx::app
