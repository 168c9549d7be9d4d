// Files that are written beside their destinations, on any POSIX system.
//
// Threads: as in PartFile.h.
#pragma once

#include <memory>
#include <string>

#include "platform/PartFile.h"

namespace qx {

class PosixPartFiles : public PartFiles {
 public:
  /// The file is named ".<random>.part" and lies in the folder of `path`.
  Result<std::unique_ptr<PartFile>> create(const std::string& path) override;
};

}  // namespace qx
