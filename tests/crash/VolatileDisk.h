// What would be left of a folder if the power were cut now: a model of a disk that holds what was
// synced, and of the cache before it that holds the rest.
//
// A file's bytes reach the disk when the file is synced, a folder's names when the folder is. The
// rest may be there as well, or not, or in part, in any combination: no file system loses more.
// Threads: as FileCallObserver.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "crash/FileCalls.h"

namespace qx {

class VolatileDisk : public FileCallObserver {
 public:
  /// What survives beyond what was synced.
  enum class Survives {
    nothing,
    /// Every change of a name, and no bytes: the empty files that a crash is known for.
    names,
    /// What a coin says, name by name and file by file; of a file's bytes also the half.
    some,
  };

  /// `root` exists and is empty.
  explicit VolatileDisk(std::string root) : root_(std::move(root)) {}

  /// Path below the root to content; a folder ends in "/". `seed` throws the coins.
  using State = std::map<std::string, std::string>;
  State afterPowerCut(Survives survives, unsigned seed) const;

  void before() override {}
  void opened(int fd, const std::string& path, int flags) override;
  void wrote(int fd, std::string_view bytes) override;
  void synced(int fd) override;
  void renamed(const std::string& from, const std::string& to, bool exchanged) override;
  void removed(const std::string& path) override;
  void madeDirectory(const std::string& path) override;

 private:
  struct Node {
    bool folder = false;
    std::string cached;
    std::string onDisk;
  };
  using Names = std::map<std::string, std::shared_ptr<Node>>;

  bool isOurs(const std::string& path) const { return path.starts_with(root_ + "/"); }

  const std::string root_;
  Names cached_;
  Names onDisk_;
  struct Open {
    std::string path;
    std::shared_ptr<Node> node;
  };
  std::map<int, Open> open_;
};

}  // namespace qx
