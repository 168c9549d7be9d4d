#include "ScratchFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

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

std::optional<Error> makeDirectory(const std::string& path) {
  std::error_code code;
  if (fs::is_directory(path, code)) return std::nullopt;
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty() && parent != path) {
    if (auto error = makeDirectory(parent.string())) return error;
  }
  if (::mkdir(path.c_str(), 0700) == 0 || fs::is_directory(path, code)) return std::nullopt;
  return failure(path, errno);
}

Result<std::unique_ptr<ScratchFolder>> ScratchFolder::make(const std::string& documents) {
  if (auto error = makeDirectory(documents)) return *std::move(error);
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
