// The properties that only a real disk can show. The contract of every Files tests the others.
#include "platforms/shared/PosixFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "contract/TemporaryDirectory.h"

namespace qx {
namespace {

using testing::ElementsAre;

class PosixFilesTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return directory_.path() + "/" + name; }
  std::optional<Error> put(const std::string& name, std::string_view text,
                           WriteMode mode = WriteMode::plain) {
    const std::string_view pieces[] = {text};
    return files_.write(at(name), pieces, mode, Durability::cached);
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }
  std::vector<std::string> names() { return *files_.list(directory_.path()); }

  TemporaryDirectory directory_;
  PosixFiles files_{{directory_.path()}};
};

TEST_F(PosixFilesTest, DirectoriesAndFilesAreForTheUserAlone) {
  const mode_t before = ::umask(0);
  ASSERT_FALSE(files_.createDirectory(at("x/y")));
  ASSERT_FALSE(put("x/a", "1"));
  ASSERT_FALSE(put("x/b", "1", WriteMode::atomic));
  ::umask(before);
  EXPECT_EQ(modeOf(at("x")), 0700U);
  EXPECT_EQ(modeOf(at("x/y")), 0700U);
  EXPECT_EQ(modeOf(at("x/a")), 0600U);
  EXPECT_EQ(modeOf(at("x/b")), 0600U);
}

TEST_F(PosixFilesTest, DirectoryWhereNoneCanBeMadeIsAnError) {
  EXPECT_EQ(files_.createDirectory("/proc/none/below").value_or(Error()).code, ENOENT);
}

TEST_F(PosixFilesTest, AFileThatOthersCouldReadIsMadePrivate) {
  ASSERT_FALSE(put("a", "1"));
  ASSERT_EQ(::chmod(at("a").c_str(), 0644), 0);
  ASSERT_FALSE(put("a", "2"));
  EXPECT_EQ(modeOf(at("a")), 0600U);
}

TEST_F(PosixFilesTest, APlainWriteDoesNotFollowALink) {
  ASSERT_FALSE(put("victim", "kept"));
  ASSERT_EQ(::symlink(at("victim").c_str(), at("link").c_str()), 0);
  const auto error = put("link", "x");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ELOOP);
  EXPECT_EQ(files_.read(at("victim"))->text(), "kept");
}

TEST_F(PosixFilesTest, ANamedPipeIsNeitherReadNorWaitedFor) {
  ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files_.read(at("pipe")));
  EXPECT_TRUE(put("pipe", "x"));
}

TEST_F(PosixFilesTest, AWriteThatRunsOutOfRoomLeavesTheOldContentAndNothingElse) {
  ASSERT_FALSE(put("log", "old", WriteMode::atomic));
  // The file-size limit of the process takes the place of a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small = {4096, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string large(100'000, 'x');
  const auto atomic = put("log", large, WriteMode::atomic);
  const auto plain = put("data", large);
  const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
  ASSERT_TRUE(atomic);
  EXPECT_EQ(atomic->code, EFBIG);
  ASSERT_TRUE(plain);
  EXPECT_EQ(files_.read(at("log"))->text(), "old");
  EXPECT_THAT(names(), ElementsAre("log"));
}

TEST_F(PosixFilesTest, AReaderSeesTheOldOrTheNewContentWhileManyWrite) {
  constexpr std::size_t kSize = 50'000;
  const auto content = [](char c) { return std::string(kSize, c); };
  ASSERT_FALSE(put("log", content('a'), WriteMode::atomic));
  std::atomic<bool> stop = false;
  std::vector<std::thread> writers;
  for (const char c : {'b', 'c'}) {
    writers.emplace_back([&, c] {
      const std::string text = content(c);
      while (!stop) EXPECT_FALSE(put("log", text, WriteMode::atomic));
    });
  }
  for (int i = 0; i < 500; ++i) {
    const auto data = files_.read(at("log"));
    ASSERT_TRUE(data);
    ASSERT_EQ(data->size(), kSize);
    ASSERT_EQ(data->text(), content(data->text().front()));
  }
  stop = true;
  for (std::thread& writer : writers) writer.join();
  EXPECT_THAT(names(), ElementsAre("log"));
}

TEST_F(PosixFilesTest, DefaultDocumentsDirectoryFollowsTheEnvironment) {
  ::setenv("HOME", "/home/somebody", 1);
  ::setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(defaultDocumentsDirectory(), "/data/qxawsuploader");
  ::setenv("XDG_DATA_HOME", "relative", 1);
  EXPECT_EQ(defaultDocumentsDirectory(), "/home/somebody/.local/share/qxawsuploader");
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(defaultDocumentsDirectory(), "/home/somebody/.local/share/qxawsuploader");
}

}  // namespace
}  // namespace qx
