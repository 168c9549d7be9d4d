// A file that is written beside its destination and takes its place when it is whole.
//
// Threads: files may be made by any thread; each is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"

namespace qx {

/// Errors: domain "ObjectStore"; code 4 when the folder is missing, else 0.
class PartFile {
 public:
  /// Removes what was written unless it was published.
  virtual ~PartFile() = default;
  /// Appends; false on failure, which error() then names.
  virtual bool write(std::string_view bytes) = 0;
  /// Empties it.
  virtual bool restart() = 0;
  /// Up to `size` bytes from `offset` on; empty at the end.
  virtual Result<std::string> read(std::uint64_t offset, std::size_t size) = 0;
  /// Puts it in the destination's place.
  virtual std::optional<Error> publish() = 0;
  virtual std::optional<Error> error() const = 0;
};

class PartFiles {
 public:
  virtual ~PartFiles() = default;
  /// Makes a file in the folder of `path`, for this user alone (0600).
  virtual Result<std::unique_ptr<PartFile>> create(const std::string& path) = 0;
};

}  // namespace qx
