// Writes beyond the file-size limit of the process, whose signal would otherwise end the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "contract/TemporaryDirectory.h"
#include "platforms/shared/PosixFiles.h"
#include "platforms/shared/PosixPartFiles.h"

namespace qx {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/// As long as it exists, no file may grow beyond 4 KiB.
class SmallFiles {
 public:
  SmallFiles() { limit(4096); }
  ~SmallFiles() { limit(RLIM_INFINITY); }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  static void limit(rlim_t bytes) {
    const rlimit both = {bytes, RLIM_INFINITY};
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &both), 0);
  }
};

bool isPending() {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, SIGXFSZ) == 1;
}

bool isBlocked() {
  sigset_t mask;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return ::sigismember(&mask, SIGXFSZ) == 1;
}

void block() {
  sigset_t signal;
  ::sigemptyset(&signal);
  ::sigaddset(&signal, SIGXFSZ);
  ::pthread_sigmask(SIG_BLOCK, &signal, nullptr);
}

class FileSizeLimitTest : public testing::Test {
 protected:
  std::optional<Error> write(WriteMode mode) {
    const std::string large(100'000, 'x');
    const std::string_view pieces[] = {large};
    const SmallFiles limit;
    return files_.write(directory_.path() + "/a", pieces, mode, Durability::cached);
  }
  void expectTooLarge(const std::optional<Error>& error) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, EFBIG);
  }

  const TemporaryDirectory directory_;
  PosixFiles files_{{directory_.path()}};
};

TEST_F(FileSizeLimitTest, WriteBeyondItIsAnErrorAndLeavesNothing) {
  struct sigaction handler {};
  for (const WriteMode mode : {WriteMode::plain, WriteMode::atomic}) {
    expectTooLarge(write(mode));
    EXPECT_THAT(*files_.list(directory_.path()), IsEmpty());
    EXPECT_FALSE(isBlocked());
    EXPECT_FALSE(isPending());
    ::sigaction(SIGXFSZ, nullptr, &handler);
    EXPECT_EQ(handler.sa_handler, SIG_DFL) << "the host's handling is left alone";
  }
}

TEST_F(FileSizeLimitTest, DownloadBeyondItIsAnError) {
  auto made = PosixPartFiles().create(directory_.path() + "/a");
  ASSERT_TRUE(made);
  const std::unique_ptr<PartFile> part = std::move(*made);
  {
    const SmallFiles limit;
    EXPECT_FALSE(part->write(std::string(100'000, 'x')));
  }
  ASSERT_TRUE(part->error());
  EXPECT_THAT(part->error()->description, HasSubstr("File too large"));
  EXPECT_FALSE(isBlocked());
}

TEST_F(FileSizeLimitTest, HostThatBlocksTheSignalFindsItBlockedAndNotPending) {
  block();
  expectTooLarge(write(WriteMode::plain));
  EXPECT_TRUE(isBlocked());
  EXPECT_FALSE(isPending());
}

TEST_F(FileSizeLimitTest, SignalThatWasPendingBeforeStaysTheHosts) {
  block();
  ::raise(SIGXFSZ);
  ASSERT_TRUE(isPending());
  expectTooLarge(write(WriteMode::plain));
  EXPECT_TRUE(isPending());
}

TEST_F(FileSizeLimitTest, HostThatIgnoresTheSignalGetsTheSameError) {
  ::signal(SIGXFSZ, SIG_IGN);
  expectTooLarge(write(WriteMode::atomic));
}

}  // namespace
}  // namespace qx
