// A file that is written beside its destination and takes the destination's place when it is whole.
//
//     const auto file = partFiles.create("/home/me/cache/a.jpg");
//     if (file && (*file)->write(bytes)) return (*file)->publish();
//
// Threads: any thread may create files. Each file belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Error.h"

namespace qx {

/// Its errors have the domain "ObjectStore" and the code 4 when the folder is missing, else 0.
class PartFile {
 public:
  /// Removes the file unless it has been published.
  virtual ~PartFile() = default;
  /// Appends bytes. False after a failure, which error() describes.
  virtual bool write(std::string_view bytes) = 0;
  /// Empties the file. False after a failure, which error() describes.
  virtual bool restart() = 0;
  /// Reads up to `size` bytes from `offset` on; an empty text at the end of the file.
  virtual Result<std::string> read(std::uint64_t offset, std::size_t size) = 0;
  /// Puts the file in the destination's place in one step.
  virtual std::optional<Error> publish() = 0;
  virtual std::optional<Error> error() const = 0;
};

class PartFiles {
 public:
  virtual ~PartFiles() = default;
  /// Makes a file in the folder of the destination `path`, for this user alone (mode 0600).
  virtual Result<std::unique_ptr<PartFile>> create(const std::string& path) = 0;
};

}  // namespace qx
