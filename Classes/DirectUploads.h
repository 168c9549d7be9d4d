// The direct uploads under way, which can be listed and cancelled.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Classes/IdleWatch.h"
#include "Classes/TaskExecutor.h"
#include "platform/Mutex.h"

namespace qx {

class DirectUploads {
 public:
  /// `idle` must outlive the uploads.
  explicit DirectUploads(IdleWatch& idle) : idle_(idle) {}

  /// Starts the attempt and lists it until it is over.
  void start(const std::shared_ptr<TaskExecutor>& executor);
  /// The attempt of this name, or null when no such upload is under way.
  std::shared_ptr<TaskExecutor> find(const std::string& filename) const;
  std::vector<std::shared_ptr<TaskExecutor>> all() const;

 private:
  void remove(const std::string& filename);

  IdleWatch& idle_;
  mutable Mutex lock_;
  /// Weak handles: an attempt under way keeps itself alive.
  std::map<std::string, std::weak_ptr<TaskExecutor>> underWay_ QX_GUARDED_BY(lock_);
};

}  // namespace qx
