#include "ScratchFolder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/linux/LinuxFiles.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

/// The library's threads may still be writing: what they add while the folder is emptied is found
/// by the next round.
constexpr int kRounds = 10;

Error failure(const std::string& path, int code) {
  return {"Files", code, path + ": " + std::generic_category().message(code)};
}

}  // namespace

Result<std::unique_ptr<ScratchFolder>> ScratchFolder::make(const std::string& documents) {
  if (auto error = LinuxFiles({}).createDirectory(documents)) return *std::move(error);
  std::error_code code;
  std::string path = (fs::absolute(documents, code) / ".qxuploader-XXXXXX").string();
  if (code) return failure(documents, code.value());
  if (::mkdtemp(path.data()) == nullptr) return failure(documents, errno);
  return std::unique_ptr<ScratchFolder>(new ScratchFolder(documents, std::move(path)));
}

void ScratchFolder::remove() const {
  std::error_code code;
  for (int round = 0; round < kRounds && fs::exists(path_, code); ++round) {
    fs::remove_all(path_, code);
  }
}

}  // namespace qx::app
