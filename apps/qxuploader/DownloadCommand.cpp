#include "DownloadCommand.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Advice.h"
#include "HostEvent.h"
#include "Interrupts.h"
#include "Text.h"
#include "platform/Files.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

/// The file name of the object. Nothing when the library does not accept the URL.
std::optional<std::string> objectName(const std::string& text) {
  const auto url = Url::parse(text);
  if (!url) return std::nullopt;
  std::string name = url->lastPathComponent();
  if (!isPlainPathComponent(name)) return std::nullopt;
  return name;
}

}  // namespace

DownloadCommand::DownloadCommand(const Context& context, DownloadOptions options)
    : Session(context), options_(std::move(options)) {}

void DownloadCommand::begin() {
  if (!makeDocuments()) return;
  // The tasks of earlier runs stay stored.
  host().perform(kUploadQueue, "Action_Pause:");
  host().setUp(false, false);
  startNext();
}

void DownloadCommand::startNext() {
  for (; current_ < options_.urls.size(); ++current_) {
    const std::string& url = options_.urls[current_];
    const auto name = objectName(url);
    if (!name) {
      failed("not the address of an object; give the URL that the upload printed",
             {{"domain", "qxuploader"}, {"code", 0}, {"description", "not the URL of an object"}});
      continue;
    }
    name_ = *name;
    running_ = true;
    startTime_ = now();
    bar_ = {};
    Dictionary parameters = {{"url", url}, {"scope", options_.scope}};
    if (options_.output) {
      std::error_code ignored;
      parameters["destination"] = (fs::absolute(*options_.output, ignored) / name_).string();
    }
    host().perform(kUploader, "Action_Download:", parameters);
    return;
  }
  finish(failed_ == 0 ? kAllDone : kSomeFailed);
}

void DownloadCommand::onEvent(const Dictionary& event) {
  if (finished() || !running_ || textOf(event, "url") != options_.urls[current_]) return;
  const std::string name = textOf(event, "event");
  if (name == "received") {
    showProgress(numberOf(event, "bytes"), numberOf(event, "total"));
  } else if (name == "downloaded") {
    succeeded();
    goOn();
  } else if (name == "downloadFailed") {
    const Error why = errorOf(event);
    failed(withAdvice(why, backendStatusOf(event)), errorFields(why));
    goOn();
  }
}

void DownloadCommand::showProgress(std::int64_t bytes, std::int64_t total) {
  const double fraction = total > 0 ? static_cast<double>(bytes) / static_cast<double>(total) : 1.0;
  bar_.update(fraction, static_cast<std::uint64_t>(bytes), static_cast<std::uint64_t>(total),
              now());
  out().live(bar_.text(printable(name_), out().columns()));
  if (out().json()) {
    out().event({{"event", "progress"},
                 {"url", options_.urls[current_]},
                 {"fraction", fraction},
                 {"bytes", bytes},
                 {"total", total}},
                {});
  }
}

void DownloadCommand::succeeded() {
  const fs::path folder = options_.output ? fs::path(*options_.output)
                                          : fs::path(documents()) / "com.qxuploader.download.cache";
  const std::string file = (folder / name_).string();
  std::error_code ignored;
  const auto size = fs::file_size(file, ignored);
  const double seconds = now() - startTime_;
  out().endLive();
  out().event({{"event", "downloaded"},
               {"url", options_.urls[current_]},
               {"file", file},
               {"bytes", size},
               {"seconds", seconds}},
              file + "  " + bytesText(size) + " in " + durationText(seconds), Tone::good);
}

void DownloadCommand::failed(const std::string& why, const Event& error) {
  ++failed_;
  const std::string& url = options_.urls[current_];
  out().endLive();
  out().failure({{"event", "failed"}, {"url", url}, {"error", error}},
                "download of " + url + " failed: " + why);
}

void DownloadCommand::goOn() {
  running_ = false;
  ++current_;
  startNext();
}

void DownloadCommand::interrupted() {
  out().endLive();
  out().failure({{"event", "interrupted"}, {"done", current_ - failed_}, {"failed", failed_}},
                "interrupted; " + std::to_string(options_.urls.size() - current_) + " of " +
                    countText(options_.urls.size(), "download", "downloads") +
                    " did not finish; run the command again for them");
  finish(kInterrupted);
}

}  // namespace qx::app
