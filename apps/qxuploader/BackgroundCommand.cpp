#include "BackgroundCommand.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace qx::app {

namespace fs = std::filesystem;

BackgroundCommand::BackgroundCommand(const Context& context, BackgroundOptions options)
    : BackgroundRun(context, options.concurrent), options_(std::move(options)) {}

void BackgroundCommand::begin() {
  const bool onlyStored = options_.paths.empty() && options_.retried.empty();
  open({.allOfThisRun = onlyStored, .retried = options_.retried});
}

void BackgroundCommand::opened() {
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
      take(path);  // A missing file is reported when it is read.
      continue;
    }
    std::vector<std::string> found;
    walk(path, found);
    std::sort(found.begin(), found.end());
    for (const std::string& file : found) take(file);
  }
}

void BackgroundCommand::walk(const std::string& path, std::vector<std::string>& found) {
  std::vector<std::string> folders = {path};
  while (!folders.empty()) {
    const std::string folder = std::move(folders.back());
    folders.pop_back();
    std::error_code code;
    fs::directory_iterator entry(folder, code);
    while (!code && entry != fs::directory_iterator()) {
      std::error_code unknown;
      // A link to a directory could make a cycle.
      if (entry->is_directory(unknown) && !entry->is_symlink(unknown)) {
        folders.push_back(entry->path().string());
      } else if (entry->is_regular_file(unknown)) {
        found.push_back(entry->path().string());
      }
      entry.increment(code);
    }
    if (code) {
      failedBeforeStart(
          folder, "could not be read whole: " + code.message() + "; check its permissions",
          {{"domain", "Files"}, {"code", code.value()}, {"description", code.message()}});
    }
  }
}

void BackgroundCommand::handOverNext() {
  if (ending()) return;
  if (next_ == files_.size()) {
    handedOver_ = true;
    if (options_.wait) return finishWhenIdle();
    return changed();
  }
  submit(files_[next_++], options_.scope, options_.image ? &*options_.image : nullptr);
  host().post([this] { handOverNext(); });
}

void BackgroundCommand::changed() {
  if (!handedOver_ || options_.wait || ending() || reporting()) return;
  if (!allTried()) {
    if (host().reachability().isReachable()) return;
    out().note("no network; what was handed over stays stored");
  }
  finishWithSummary();
}

}  // namespace qx::app
