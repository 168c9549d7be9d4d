// "download": downloads objects into the cache directory or into a given directory, one after the
// other.
//
// Threads: see Session.
#pragma once

#include <cstdint>
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
  void onEvent(const Dictionary& event) override;

  void startNext();
  void showProgress(std::int64_t bytes, std::int64_t total);
  void succeeded();
  void failed(const std::string& why, const Event& error);
  /// Called when the running download has ended.
  void goOn();

  const DownloadOptions options_;
  std::size_t current_ = 0;
  bool running_ = false;
  std::size_t failed_ = 0;
  std::string name_;
  double startTime_ = 0;
  ProgressBar bar_;
};

}  // namespace qx::app
