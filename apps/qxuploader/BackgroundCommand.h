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
  /// Files, and directories whose files count, however deep.
  std::vector<std::string> paths;
  /// "tasks retry": the names of stored tasks.
  std::vector<std::string> retried;
  std::string scope;
  std::optional<std::int64_t> concurrent;
  /// Until nothing is stored any more, instead of until every file was tried once.
  bool wait = false;
  /// "background-image": the item the files belong to.
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
  /// One file per piece of work, so that Ctrl-C and outcomes come in between.
  void handOverNext();
  /// The files of the paths, directories in the order of their names, each file once.
  void collectFiles();
  /// Adds the files of a directory, however deep. A directory that cannot be read is reported and
  /// the others go on.
  void walk(const std::string& path, std::vector<std::string>& found);

  const BackgroundOptions options_;
  std::vector<std::string> files_;
  std::size_t next_ = 0;
  bool handedOver_ = false;
};

}  // namespace qx::app
