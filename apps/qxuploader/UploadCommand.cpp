#include "UploadCommand.h"

#include <algorithm>
#include <cctype>

#include "Advice.h"
#include "Classes/Target_Uploader.h"
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
  host().setUp(options_.serverResize, false);
  showLive();
  startMore();
}

void UploadCommand::startMore() {
  while (running_ < kRunningAtOnce && next_ < options_.files.size()) {
    start(options_.files[next_++]);
  }
  if (running_ == 0 && next_ == options_.files.size()) {
    finish(failed_ == 0 ? kAllDone : kSomeFailed);
  }
}

void UploadCommand::start(const std::string& file) {
  auto data = readWholeFile(file);
  if (!data) {
    ++failed_;
    out().failure({{"event", "failed"}, {"file", file}, {"error", errorFields(data.error())}},
                  file + " " + readFailure(data.error()));
    return;
  }
  ++running_;
  Dictionary parameters = {
      {"scope", options_.scope}, {"data", *std::move(data)}, {"suffix", suffixOf(file)}};
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
  parameters["complete"] = Value::callback<HostUploadComplete>(
      [this, file](const std::optional<std::string>& url, std::int64_t itemId,
                   const std::optional<Error>& error) {
        host().post([=, this] { ended(file, url, itemId, error); });
      });
  host().perform("Action_Upload:", parameters);
}

void UploadCommand::ended(const std::string& file, const std::optional<std::string>& url,
                          std::int64_t itemId, const std::optional<Error>& error) {
  if (finished()) return;
  --running_;
  if (error || !url) {
    ++failed_;
    const Error why = error.value_or(Error{"qxuploader", 0, "no address came back"});
    out().failure({{"event", "failed"}, {"file", file}, {"error", errorFields(why)}},
                  "upload of " + file + " failed: " + withAdvice(why, host().backendStatus(why)));
  } else {
    ++done_;
    out().event({{"event", "uploaded"}, {"file", file}, {"url", *url}, {"itemId", itemId}},
                file + " -> " + *url + " (item " + std::to_string(itemId) + ")", Tone::good);
  }
  showLive();
  startMore();
}

void UploadCommand::showLive() {
  out().live(cut("uploading: " + std::to_string(done_ + failed_) + " of " +
                     std::to_string(options_.files.size()),
                 out().columns()));
}

void UploadCommand::interrupted() {
  const std::size_t left = options_.files.size() - done_ - failed_;
  out().endLive();
  out().failure({{"event", "interrupted"}, {"done", done_}, {"failed", failed_}, {"left", left}},
                "interrupted; " + std::to_string(done_) + " of " +
                    countText(options_.files.size(), "file", "files") +
                    " uploaded; run the command again for the others");
  finish(kInterrupted);
}

}  // namespace qx::app
