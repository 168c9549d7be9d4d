#include "BackgroundCommand.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace qx::app {

namespace fs = std::filesystem;

BackgroundCommand::BackgroundCommand(const Context& context, BackgroundOptions options)
    : BackgroundRun(context, options.concurrent), options_(std::move(options)) {}

void BackgroundCommand::begin() {
  open();
  collectFiles();
  handOverNext();
}

void BackgroundCommand::collectFiles() {
  std::set<std::string> seen;
  const auto take = [&](const std::string& path) {
    std::error_code ignored;
    const std::string whole = fs::absolute(path, ignored).lexically_normal().string();
    if (seen.insert(whole).second) files_.push_back(path);
  };
  for (const std::string& path : options_.paths) {
    std::error_code code;
    if (!fs::is_directory(path, code)) {
      take(path);  // what is missing is reported when it is read
      continue;
    }
    std::vector<std::string> found;
    fs::recursive_directory_iterator entry(path, code);
    while (!code && entry != fs::recursive_directory_iterator()) {
      std::error_code unknown;
      if (entry->is_regular_file(unknown)) found.push_back(entry->path().string());
      entry.increment(code);
    }
    std::sort(found.begin(), found.end());
    for (const std::string& file : found) take(file);
    if (code) {
      failedBeforeStart(
          path, "could not be read whole: " + code.message() + "; check its permissions",
          {{"domain", "Files"}, {"code", code.value()}, {"description", code.message()}});
    }
  }
}

void BackgroundCommand::handOverNext() {
  if (finished()) return;
  if (next_ == files_.size()) {
    handedOver_ = true;
    changed();
    return;
  }
  const std::string& file = files_[next_++];
  if (options_.image) {
    submitImage(file, {.scope = options_.scope,
                       .itemId = options_.image->itemId,
                       .det = options_.image->det,
                       .tags = options_.image->tags});
  } else {
    submit(file, options_.scope);
  }
  host().post([this] { handOverNext(); });
}

void BackgroundCommand::changed() {
  if (!handedOver_ || finished() || reporting()) return;
  if (options_.wait ? nothingLeft() : allTried()) {
    finishWithSummary();
  } else if (!options_.wait && !host().reachability().isReachable()) {
    out().note("no network; what was handed over stays stored");
    finishWithSummary();
  }
}

}  // namespace qx::app
