// "watch": background-uploads each new image that appears in a directory.
//
// Threads: see Session; a thread of its own waits for the directory's events and posts them.
#pragma once

#include <optional>
#include <string>

#include "BackgroundRun.h"

namespace qx::app {

struct WatchOptions {
  std::string directory;
  std::string scope;
  std::optional<std::int64_t> concurrent;
};

class WatchCommand : public BackgroundRun {
 public:
  WatchCommand(const Context& context, WatchOptions options);

 private:
  void begin() override;
  void changed() override {}
  void waitForFiles(int inotify);
  void appeared(const std::string& name);
  void stopped(const std::string& why);

  const WatchOptions options_;
};

}  // namespace qx::app
