#include "platform/Files.h"

namespace qx {

std::string documentPath(Files& files) {
  const std::vector<std::string> directories = files.documentDirectories();
  return directories.empty() ? "" : directories.front();
}

bool isPlainPathComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace qx
