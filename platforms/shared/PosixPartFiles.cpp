#include "platforms/shared/PosixPartFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

#include "platforms/shared/FileSizeSignal.h"
#include "platforms/shared/SystemClock.h"

namespace qx {
namespace {

Error fileError(const std::string& path, int code) {
  constexpr std::int64_t kLocalFileNotFound = 4;
  return {"ObjectStore", code == ENOENT || code == ENOTDIR ? kLocalFileNotFound : 0,
          "cannot write " + path + ": " + std::generic_category().message(code)};
}

class PosixPartFile : public PartFile {
 public:
  PosixPartFile(std::string path, std::string part, int file)
      : path_(std::move(path)), part_(std::move(part)), file_(file) {}
  PosixPartFile(const PosixPartFile&) = delete;
  PosixPartFile& operator=(const PosixPartFile&) = delete;
  ~PosixPartFile() override {
    if (file_ < 0) return;
    ::close(file_);
    ::unlink(part_.c_str());
  }

  bool write(std::string_view bytes) override {
    const FileSizeSignalBlock noSignal;
    while (!bytes.empty()) {
      const ssize_t written = ::write(file_, bytes.data(), bytes.size());
      if (written < 0) {
        if (errno == EINTR) continue;
        return fail(errno);
      }
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }
  bool restart() override {
    return (::lseek(file_, 0, SEEK_SET) == 0 && ::ftruncate(file_, 0) == 0) || fail(errno);
  }
  Result<std::string> read(std::uint64_t offset, std::size_t size) override {
    std::string bytes(size, '\0');
    ssize_t count = 0;
    do {
      count = ::pread(file_, bytes.data(), size, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    if (count < 0) return fileError(path_, errno);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }
  std::optional<Error> publish() override {
    // Some file systems report a full disk only here.
    if (::close(std::exchange(file_, -1)) != 0 || std::rename(part_.c_str(), path_.c_str()) != 0) {
      fail(errno);
      ::unlink(part_.c_str());
      return error_;
    }
    return std::nullopt;
  }
  std::optional<Error> error() const override { return error_; }

 private:
  bool fail(int code) {
    error_ = fileError(path_, code);
    return false;
  }

  const std::string path_;
  const std::string part_;
  int file_;
  std::optional<Error> error_;
};

}  // namespace

Result<std::unique_ptr<PartFile>> PosixPartFiles::create(const std::string& path) {
  // A path with a NUL would name another file.
  if (path.find('\0') != std::string::npos) return fileError(path.c_str(), EINVAL);
  // The name is not an extension of the destination's name, which may already be as long as a name
  // can be.
  std::string part = path.substr(0, path.rfind('/') + 1) + "." + SystemUuid().random() + ".part";
  const int file = ::open(part.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return fileError(path, errno);
  return std::unique_ptr<PartFile>(std::make_unique<PosixPartFile>(path, std::move(part), file));
}

}  // namespace qx
