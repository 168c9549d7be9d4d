// The files that would be left in a folder if the power were cut now: a model of a disk that holds
// what was synced, and of a cache that holds the rest.
//
// The bytes of a file reach the disk when the file is synced, the names in a folder when the folder
// is synced. The rest may be on the disk completely, partly or not at all, in any combination. No
// file system loses more.
// Threads: as in FileCallObserver.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "crash/FileCalls.h"

namespace qx {

class VolatileDisk : public FileCallObserver {
 public:
  /// The changes that survive a power cut although they were not synced.
  enum class Survives {
    nothing,
    /// Every change of a name, but no bytes: this makes the empty files that are well known after
    /// crashes.
    names,
    /// For each name and each file a coin decides. Of the bytes of a file, half may survive.
    some,
  };

  /// `root` is an existing, empty folder.
  explicit VolatileDisk(std::string root) : root_(std::move(root)) {}

  /// Maps each path below the root to its content. The path of a folder ends in "/". `seed`
  /// determines the coins.
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
