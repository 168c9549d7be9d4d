#include "Classes/DirectUploads.h"

namespace qx {

void DirectUploads::start(const std::shared_ptr<TaskExecutor>& executor) {
  const std::string& filename = executor->task->filename();
  idle_.begin();
  {
    MutexLock lock(lock_);
    underWay_[filename] = executor;
  }
  executor->observers.over = [this, filename] {
    remove(filename);
    idle_.end();
  };
  executor->execute();
}

void DirectUploads::remove(const std::string& filename) {
  MutexLock lock(lock_);
  underWay_.erase(filename);
}

std::shared_ptr<TaskExecutor> DirectUploads::find(const std::string& filename) const {
  MutexLock lock(lock_);
  const auto found = underWay_.find(filename);
  return found == underWay_.end() ? nullptr : found->second.lock();
}

std::vector<std::shared_ptr<TaskExecutor>> DirectUploads::all() const {
  std::vector<std::shared_ptr<TaskExecutor>> executors;
  MutexLock lock(lock_);
  for (const auto& [filename, weak] : underWay_) {
    if (auto alive = weak.lock()) executors.push_back(std::move(alive));
  }
  return executors;
}

}  // namespace qx
