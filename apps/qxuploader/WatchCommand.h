// "watch": uploads each new image that appears in a directory in the background.
//
// Threads: see Session. A thread of its own waits for changes of the directory and posts them.
#pragma once

#include <optional>
#include <string>
#include <thread>

#include "BackgroundRun.h"
#include "StopEvent.h"

namespace qx::app {

struct WatchOptions {
  std::string directory;
  std::string scope;
  std::optional<std::int64_t> concurrent;
};

class WatchCommand : public BackgroundRun {
 public:
  WatchCommand(const Context& context, WatchOptions options);
  ~WatchCommand() override;

 private:
  void begin() override;
  void opened() override;
  void changed() override {}
  void waitForFiles();
  void appeared(const std::string& name);
  void stopped(const std::string& why);

  const WatchOptions options_;
  int inotify_ = -1;
  StopEvent stop_;
  std::thread waiting_;
};

}  // namespace qx::app
