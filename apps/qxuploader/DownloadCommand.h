// "download": objects into the cache directory or a directory of one's choice, one after the other.
//
// Threads: see Session.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ProgressBar.h"
#include "Session.h"

namespace qx::app {

struct DownloadOptions {
  std::vector<std::string> urls;
  std::string scope;
  std::optional<std::string> output;
};

class DownloadCommand : public Session {
 public:
  DownloadCommand(const Context& context, DownloadOptions options);

 private:
  void begin() override;
  void interrupted() override;
  void onTracking(const Dictionary& parameters, const std::string& name) override;
  void onDownloadBytes(const TransferProgress& progress) override;

  void startNext();
  void showProgress(double fraction);
  /// `index` says which download it was: a late word about an earlier one is dropped.
  void ended(std::size_t index, const std::optional<Url>& location,
             const std::optional<Error>& error);
  void failed(const std::string& why, const Event& error);
  /// The file in its final place; an error when it could not be brought there.
  Result<std::string> moveOut(const std::string& fetched);

  const DownloadOptions options_;
  std::size_t current_ = 0;
  bool running_ = false;
  std::size_t failed_ = 0;
  std::string name_;
  double startTime_ = 0;
  double shownTime_ = 0;
  ProgressBar bar_;
  /// Guards what onDownloadBytes brings from the store's threads.
  std::mutex bytesMutex_;
  TransferProgress bytes_;
};

}  // namespace qx::app
