#include "CopyFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <vector>

namespace qx::app {
namespace {

/// 0, or errno.
int writeWhole(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno != EINTR) return errno;
    if (n > 0) bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return 0;
}

int copyBytes(int from, int to) {
  std::vector<char> buffer(std::size_t{1} << 20);
  for (;;) {
    const ssize_t n = ::read(from, buffer.data(), buffer.size());
    if (n == 0) return 0;
    if (n < 0 && errno != EINTR) return errno;
    if (n < 0) continue;
    if (const int code = writeWhole(to, {buffer.data(), static_cast<std::size_t>(n)})) return code;
  }
}

}  // namespace

std::optional<Error> moveByCopy(const std::string& from, const std::string& to) {
  constexpr std::string_view kSuffix = ".part";
  const auto failure = [&to](int code) {
    return Error{"Files", code, to + ": " + std::generic_category().message(code)};
  };
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (source < 0) return failure(errno);
  std::string aside = to.substr(0, to.rfind('/') + 1) + ".qxuploader-XXXXXX" + std::string(kSuffix);
  // Makes a file that was not there, with mode 0600: a link that somebody put there is not
  // followed.
  const int copy =
      ::mkostemps(aside.data(), static_cast<int>(kSuffix.size()), O_CLOEXEC | O_NOFOLLOW);
  int code = copy < 0 ? errno : copyBytes(source, copy);
  ::close(source);
  // Some file systems report a full disk only here.
  if (copy >= 0 && ::close(copy) != 0 && code == 0) code = errno;
  if (code == 0 && std::rename(aside.c_str(), to.c_str()) != 0) code = errno;
  if (code != 0) {
    if (copy >= 0) ::unlink(aside.c_str());
    return failure(code);
  }
  ::unlink(from.c_str());
  return std::nullopt;
}

}  // namespace qx::app
