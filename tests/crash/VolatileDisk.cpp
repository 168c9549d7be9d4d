#include "crash/VolatileDisk.h"

#include <fcntl.h>

#include <random>
#include <set>
#include <utility>

namespace qx {
namespace {

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

VolatileDisk::State VolatileDisk::afterPowerCut(Survives survives, unsigned seed) const {
  std::minstd_rand coins(seed + 1);
  const auto heads = [&coins] { return coins() / 256 % 2 == 0; };

  Names left;
  std::set<std::string> paths;
  for (const auto& [path, node] : onDisk_) paths.insert(path);
  for (const auto& [path, node] : cached_) paths.insert(path);
  // The paths are sorted, so that a folder comes before its content.
  for (const std::string& path : paths) {
    const bool changed = survives == Survives::names || (survives == Survives::some && heads());
    const Names& from = changed ? cached_ : onDisk_;
    const auto entry = from.find(path);
    const bool reachable = parentOf(path) == root_ || left.contains(parentOf(path));
    if (entry != from.end() && reachable) left.emplace(path, entry->second);
  }

  State state;
  for (const auto& [path, node] : left) {
    const std::string name = path.substr(root_.size() + 1);
    if (node->folder) {
      state.emplace(name + "/", "");
      continue;
    }
    std::string content = node->onDisk;
    if (survives == Survives::some && node->cached != node->onDisk && heads()) {
      content = heads() ? node->cached : node->cached.substr(0, node->cached.size() / 2);
    }
    state.emplace(name, std::move(content));
  }
  return state;
}

void VolatileDisk::opened(int fd, const std::string& path, int flags) {
  open_.erase(fd);
  if (path == root_) {
    open_[fd] = {path, nullptr};
    return;
  }
  if (!isOurs(path)) return;
  std::shared_ptr<Node>& node = cached_[path];
  if (!node) node = std::make_shared<Node>();
  if ((flags & O_TRUNC) != 0) node->cached.clear();
  open_[fd] = {path, node};
}

void VolatileDisk::wrote(int fd, std::string_view bytes) {
  const auto open = open_.find(fd);
  if (open != open_.end()) open->second.node->cached += bytes;
}

void VolatileDisk::synced(int fd) {
  const auto open = open_.find(fd);
  if (open == open_.end()) return;
  const auto& [path, node] = open->second;
  if (node && !node->folder) {
    node->onDisk = node->cached;
    return;
  }
  const auto inside = [&folder = path](const auto& entry) {
    return parentOf(entry.first) == folder;
  };
  std::erase_if(onDisk_, inside);
  for (const auto& entry : cached_) {
    if (inside(entry)) onDisk_.insert(entry);
  }
}

void VolatileDisk::renamed(const std::string& from, const std::string& to, bool exchanged) {
  if (!isOurs(from)) return;
  const std::shared_ptr<Node> node = cached_[from];
  cached_.erase(from);
  if (exchanged) cached_[from] = cached_[to];
  cached_[to] = node;
}

void VolatileDisk::removed(const std::string& path) {
  cached_.erase(path);
}

void VolatileDisk::madeDirectory(const std::string& path) {
  if (!isOurs(path)) return;
  cached_[path] = std::make_shared<Node>();
  cached_[path]->folder = true;
}

}  // namespace qx
