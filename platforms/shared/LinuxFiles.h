// The file manager on Linux.
//
// Threads: every operation may be called from any thread; it keeps no state but its settings.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"

namespace qx {

/// $XDG_DATA_HOME/qxawsuploader, else ~/.local/share/qxawsuploader; nothing when there is no home.
std::optional<std::string> defaultDocumentsDirectory();

class LinuxFiles : public Files {
 public:
  explicit LinuxFiles(std::vector<std::string> documentDirectories)
      : documentDirectories_(std::move(documentDirectories)) {}

  std::vector<std::string> documentDirectories() override { return documentDirectories_; }
  PathKind kind(const std::string& path) override;
  std::optional<Error> createDirectory(const std::string& path) override;
  Result<std::vector<std::string>> list(const std::string& path) override;
  Result<Data> read(const std::string& path) override;
  /// An atomic write goes through ".qx-<process>-<number>.tmp" in the same directory; only a crash
  /// in the middle of a write leaves one behind.
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override;
  std::optional<Error> rename(const std::string& from, const std::string& to) override;
  std::optional<Error> remove(const std::string& path) override;

 private:
  const std::vector<std::string> documentDirectories_;
};

}  // namespace qx
