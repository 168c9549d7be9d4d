#include "WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

namespace qx::app {
namespace {

/// Memory to read into, filled with zeros. Nothing when it is too much. The system may grant more
/// memory than it has, and end the process when the memory is used.
std::optional<std::string> bytesInMemory(std::uint64_t size) {
  const auto memory = static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES)) *
                      static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  if (size > memory) return std::nullopt;
  try {
    return std::string(static_cast<std::size_t>(size), '\0');
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace

Result<Data> readWholeFile(const std::string& path) {
  const auto failure = [&](int code) { return Error{"Files", code, std::strerror(code)}; };
  // With O_NONBLOCK, opening a pipe that has no writer does not hang. A pipe is refused below.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return failure(errno);
  struct stat info {};
  std::optional<std::string> room;
  int code = ::fstat(fd, &info) == 0 ? 0 : errno;
  if (code == 0 && S_ISDIR(info.st_mode)) code = EISDIR;
  if (code == 0 && !S_ISREG(info.st_mode)) {
    ::close(fd);
    return Error{"Files", EINVAL, "not a regular file"};
  }
  if (code == 0) room = bytesInMemory(static_cast<std::uint64_t>(info.st_size));
  if (code == 0 && !room) {
    ::close(fd);
    return Error{"Files", EFBIG, "too large to hold in memory"};
  }
  std::string bytes = std::move(room).value_or("");
  std::size_t filled = 0;
  while (code == 0 && filled < bytes.size()) {
    const ssize_t n = ::read(fd, bytes.data() + filled, bytes.size() - filled);
    if (n > 0) {
      filled += static_cast<std::size_t>(n);
    } else if (n == 0) {
      break;  // The file has become shorter meanwhile.
    } else if (errno != EINTR) {
      code = errno;
    }
  }
  ::close(fd);
  if (code != 0) return failure(code);
  bytes.resize(filled);
  return Data(std::move(bytes));
}

std::string readFailure(const Error& error) {
  if (error.code == EFBIG) return "is " + error.description;
  return "could not be read: " + error.description + "; check the path and its permissions";
}

}  // namespace qx::app
