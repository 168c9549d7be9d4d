// The file manager on any POSIX system.
//
// Threads: every operation may be called from any thread. The class has no state except its
// settings.
// Links: a path below a documents directory is opened one directory at a time, so that no link in
// it is followed, even if somebody changes the directories meanwhile.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"

namespace qx {

/// $XDG_DATA_HOME/qxawsuploader, or ~/.local/share/qxawsuploader without that variable. Nothing
/// when there is no home.
std::optional<std::string> defaultDocumentsDirectory();

class PosixFiles : public Files {
 public:
  explicit PosixFiles(std::vector<std::string> documentDirectories)
      : documentDirectories_(std::move(documentDirectories)) {}

  std::vector<std::string> documentDirectories() override { return documentDirectories_; }
  PathKind kind(const std::string& path) override;
  Result<FileFacts> facts(const std::string& path) override;
  Result<std::unique_ptr<FileLock>> lock(const std::string& path) override;
  std::optional<Error> createDirectory(const std::string& path) override;
  Result<std::vector<std::string>> list(const std::string& path) override;
  Result<Data> read(const std::string& path) override;
  /// An atomic write writes ".qx-<process>-<number>.tmp" in the same directory first. Such a file
  /// stays behind only after a crash in the middle of a write.
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override;
  std::optional<Error> rename(const std::string& from, const std::string& to) override;
  std::optional<Error> remove(const std::string& path) override;

 private:
  struct Place;
  /// A path below a documents directory, split into its components.
  struct Below {
    std::string base;
    std::vector<std::string> components;
  };

  std::optional<Below> belowDocuments(const std::string& path) const;
  Result<Place> placeOf(const std::string& path) const;
  /// Creates a directory outside the documents directories, where links may be followed.
  std::optional<Error> createElsewhere(const std::string& path);

  const std::vector<std::string> documentDirectories_;
};

}  // namespace qx
