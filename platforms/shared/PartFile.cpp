#include "platforms/shared/PartFile.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include "http/Multipart.h"
#include "platforms/shared/Sha256.h"

namespace qx {
namespace {

Error fileError(const std::string& path, int code) {
  constexpr std::int64_t kLocalFileNotFound = 4;
  return {"ObjectStore", code == ENOENT || code == ENOTDIR ? kLocalFileNotFound : 0,
          "cannot write " + path + ": " + std::generic_category().message(code)};
}

}  // namespace

Result<PartFile> PartFile::create(std::string path) {
  // A path cut off at a NUL would be another file.
  if (path.find('\0') != std::string::npos) return fileError(path.c_str(), EINVAL);
  // Not the destination's name and more: that may be as long as a name can be.
  std::string part = path.substr(0, path.rfind('/') + 1) + "." + makeBoundary() + ".part";
  const int file = ::open(part.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) return fileError(path, errno);
  return PartFile(std::move(path), std::move(part), file);
}

PartFile::PartFile(PartFile&& other) noexcept
    : path_(std::move(other.path_)),
      part_(std::move(other.part_)),
      file_(std::exchange(other.file_, -1)),
      error_(std::move(other.error_)) {}

PartFile::~PartFile() {
  if (file_ < 0) return;
  ::close(file_);
  ::unlink(part_.c_str());
}

bool PartFile::fail(int code) {
  error_ = fileError(path_, code);
  return false;
}

bool PartFile::write(std::string_view bytes) {
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

bool PartFile::restart() {
  return (::lseek(file_, 0, SEEK_SET) == 0 && ::ftruncate(file_, 0) == 0) || fail(errno);
}

Result<std::optional<std::string>> PartFile::md5() const {
  const std::optional<std::string> none;
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  if (EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1) return none;
  std::vector<unsigned char> buffer(std::size_t{256} << 10);
  off_t offset = 0;
  for (;;) {
    const ssize_t count = ::pread(file_, buffer.data(), buffer.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return fileError(path_, errno);
    if (count == 0) break;
    EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(count));
    offset += count;
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int size = 0;
  if (EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) return none;
  return std::optional<std::string>(hex(std::span(digest).first(size)));
}

std::optional<Error> PartFile::publish() {
  // Some file systems report a full disk only here.
  if (::close(std::exchange(file_, -1)) != 0 || std::rename(part_.c_str(), path_.c_str()) != 0) {
    fail(errno);
    ::unlink(part_.c_str());
    return error_;
  }
  return std::nullopt;
}

}  // namespace qx
