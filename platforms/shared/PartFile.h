// A file that is written beside its destination and takes its place when it is whole.
//
// Threads: one at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"

namespace qx {

/// Errors: domain "ObjectStore"; code 4 when the folder is missing, else 0.
class PartFile {
 public:
  /// Makes ".<random>.part" in the folder of `path`, for this user alone (0600).
  static Result<PartFile> create(std::string path);
  PartFile(PartFile&& other) noexcept;
  PartFile& operator=(PartFile&&) = delete;
  /// Removes the part file unless it was published.
  ~PartFile();

  /// Appends; false on failure, which error() then names.
  bool write(std::string_view bytes);
  /// Begins anew.
  bool restart();
  /// The MD5 of what is written so far, in lower-case hex; nothing when the system's OpenSSL allows
  /// no MD5, an error when the file cannot be read back. Reads the whole file.
  Result<std::optional<std::string>> md5() const;
  /// Renames it over the destination.
  std::optional<Error> publish();
  const std::optional<Error>& error() const { return error_; }

 private:
  PartFile(std::string path, std::string part, int file)
      : path_(std::move(path)), part_(std::move(part)), file_(file) {}
  bool fail(int code);

  std::string path_;
  std::string part_;
  int file_;
  std::optional<Error> error_;
};

}  // namespace qx
