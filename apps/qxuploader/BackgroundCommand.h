// "background", "background-image" and "tasks retry": files through the stored, retried queue.
//
// Threads: see Session.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "BackgroundRun.h"

namespace qx::app {

struct BackgroundOptions {
  /// Files and directories. All files in a directory count, at any depth.
  std::vector<std::string> paths;
  /// For "tasks retry": the names of stored tasks.
  std::vector<std::string> retried;
  std::string scope;
  std::optional<std::int64_t> concurrent;
  /// True: the run lasts until nothing is stored any more, not only until every file has been tried
  /// once.
  bool wait = false;
  /// For "background-image": the item to which the files belong.
  std::optional<ImageItem> image;
};

class BackgroundCommand : public BackgroundRun {
 public:
  BackgroundCommand(const Context& context, BackgroundOptions options);

 private:
  void begin() override;
  void opened() override;
  void changed() override;
  std::size_t notHandedOver() const override { return files_.size() - next_; }
  /// Each file is a piece of work of its own, so that Ctrl-C and outcomes are handled in between.
  void handOverNext();
  /// The files in the paths, directories in the order of their names, each file once.
  void collectFiles();
  /// Adds the files of a directory at any depth. A directory that cannot be read is reported, and
  /// the others are read.
  void walk(const std::string& path, std::vector<std::string>& found);

  const BackgroundOptions options_;
  std::vector<std::string> files_;
  std::size_t next_ = 0;
  bool handedOver_ = false;
};

}  // namespace qx::app
