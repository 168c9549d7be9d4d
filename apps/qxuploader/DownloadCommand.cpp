#include "DownloadCommand.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Advice.h"
#include "Classes/Target_Uploader.h"
#include "CopyFile.h"
#include "Interrupts.h"
#include "Text.h"
#include "platform/Files.h"

namespace qx::app {
namespace {

/// Often enough to look alive, seldom enough to cost nothing.
constexpr double kRedrawSeconds = 0.1;

/// After these the library calls no completion.
constexpr std::string_view kNoUtility = "[Error] config s3 failed";
constexpr std::string_view kNoUrl = "[Error] not found url";

/// The object's file name, or nothing when the library will not take the URL.
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
    shownTime_ = 0;
    bar_ = {};
    {
      const std::lock_guard lock(bytesMutex_);
      bytes_ = {};
    }
    host().perform(
        "Action_Download:",
        {{"url", url},
         {"scope", options_.scope},
         {"progress", Value::callback<HostDownloadProgress>([this, index = current_](double part) {
            if (index == current_ && running_) showProgress(part);
          })},
         {"complete", Value::callback<HostDownloadComplete>(
                          [this, index = current_](const std::optional<Url>& location,
                                                   const std::optional<Error>& error) {
                            host().post([=, this] { ended(index, location, error); });
                          })}});
    return;
  }
  finish(failed_ == 0 ? kAllDone : kSomeFailed);
}

void DownloadCommand::onDownloadBytes(const TransferProgress& progress) {
  const std::lock_guard lock(bytesMutex_);
  bytes_ = progress;
}

/// Runs on the main queue, as the library promises.
void DownloadCommand::showProgress(double fraction) {
  const double time = now();
  if (fraction < 1 && time - shownTime_ < kRedrawSeconds) return;
  shownTime_ = time;
  TransferProgress bytes;
  {
    const std::lock_guard lock(bytesMutex_);
    bytes = bytes_;
  }
  const auto done = static_cast<std::uint64_t>(std::max<std::int64_t>(bytes.completedUnitCount, 0));
  const auto total = static_cast<std::uint64_t>(std::max<std::int64_t>(bytes.totalUnitCount, 0));
  bar_.update(fraction, done, total, time);
  out().live(bar_.text(printable(name_), out().columns()));
  if (out().json()) {
    out().event({{"event", "progress"},
                 {"url", options_.urls[current_]},
                 {"fraction", fraction},
                 {"bytes", done},
                 {"total", total}},
                {});
  }
}

void DownloadCommand::ended(std::size_t index, const std::optional<Url>& location,
                            const std::optional<Error>& error) {
  if (finished() || !running_ || index != current_) return;
  running_ = false;
  const std::string& url = options_.urls[current_];
  if (error || !location) {
    const Error why = error.value_or(Error{"qxuploader", 0, "no file came back"});
    failed(withAdvice(why, host().backendStatus(why)), errorFields(why));
  } else {
    const auto file = moveOut(location->decodedPath());
    if (!file) {
      failed(withAdvice(file.error()), errorFields(file.error()));
    } else {
      std::error_code ignored;
      const auto size = std::filesystem::file_size(*file, ignored);
      const double seconds = now() - startTime_;
      out().endLive();
      out().event({{"event", "downloaded"},
                   {"url", url},
                   {"file", *file},
                   {"bytes", size},
                   {"seconds", seconds}},
                  *file + "  " + bytesText(size) + " in " + durationText(seconds), Tone::good);
    }
  }
  ++current_;
  startNext();
}

void DownloadCommand::failed(const std::string& why, const Event& error) {
  ++failed_;
  const std::string& url = options_.urls[current_];
  out().endLive();
  out().failure({{"event", "failed"}, {"url", url}, {"error", error}},
                "download of " + url + " failed: " + why);
}

void DownloadCommand::onTracking(const Dictionary& parameters, const std::string&) {
  const auto message = readText(parameters, "message");
  if (message != kNoUtility && message != kNoUrl) return;
  host().post([this, message = *message] {
    if (finished() || !running_) return;
    ended(current_, std::nullopt, Error{"AWSUploaderError", 100, message});
  });
}

Result<std::string> DownloadCommand::moveOut(const std::string& fetched) {
  namespace fs = std::filesystem;
  const fs::path folder = options_.output
                              ? *options_.output
                              : context().scratch->documents() + "/com.qxuploader.download.cache";
  if (const auto error = host().seams().files.createDirectory(folder.string())) return *error;
  const fs::path target = folder / baseName(fetched);
  std::error_code code;
  fs::rename(fetched, target, code);
  if (!code) return target.string();
  if (code == std::errc::cross_device_link) {
    if (auto error = moveByCopy(fetched, target.string())) return *std::move(error);
    return target.string();
  }
  return Error{"Files", code.value(), target.string() + ": " + code.message()};
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
