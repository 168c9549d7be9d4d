// The power is cut at every single change of the file system that a host makes, so that everything
// that was not synced may be lost. The host process makes its run once. At each change it lays out
// the files that a power cut would leave, and waits until a new host has continued from them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "crash/CrashFixture.h"
#include "crash/FileCalls.h"
#include "crash/VolatileDisk.h"

namespace qx {
namespace {

using Survives = VolatileDisk::Survives;

/// Processes start many times slower under a sanitizer.
constexpr int kStride = kSanitized ? 13 : 1;

/// The files in the folder for the next host, which their process tells the test.
struct Cut {
  int call;
  Survives survives;
};

/// Before each change, lays out in `folder` the files that a power cut would leave, and waits for
/// the test.
class PowerCuts : public VolatileDisk {
 public:
  PowerCuts(std::string root, std::string folder, const Noted& noted, int toTest, int fromTest)
      : VolatileDisk(std::move(root)),
        folder_(std::move(folder)),
        noted_(noted),
        toTest_(toTest),
        fromTest_(fromTest) {}

  void before() override {
    if (call_++ % kStride != 0) return;
    // The test's own files are no part of the run.
    observeFileCalls(nullptr);
    for (const Survives survives : {Survives::nothing, Survives::names, Survives::some}) {
      State state = afterPowerCut(survives, static_cast<unsigned>(call_));
      // Most changes reach the disk only with a later sync.
      if (survives == Survives::nothing) {
        if (state == last_ && noted_ == lastNoted_) continue;
        last_ = state;
        lastNoted_ = noted_;
      }
      layOut(state);
      const Cut cut{call_, survives};
      char answer = 0;
      if (::write(toTest_, &cut, sizeof cut) != sizeof cut || ::read(fromTest_, &answer, 1) != 1) {
        _exit(1);  // The test has ended.
      }
    }
    observeFileCalls(this);
  }

 private:
  void layOut(const State& state) const {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
    for (const auto& [name, content] : state) {
      if (name.ends_with('/')) {
        std::filesystem::create_directory(folder_ + "/" + name);
      } else {
        std::ofstream(folder_ + "/" + name, std::ios::binary) << content;
      }
    }
  }

  const std::string folder_;
  const Noted& noted_;
  const int toTest_;
  const int fromTest_;
  int call_ = 0;
  State last_ = {{"none yet", ""}};
  Noted lastNoted_ = {};
};

class PowerCut : public CrashFixture {};

TEST_F(PowerCut, LosesNoAcceptedTaskAndRepeatsNoneThatIsGoneFromTheLog) {
  const std::string run = documents_ + "/run";
  const std::string cutShort = documents_ + "/cut";
  std::filesystem::create_directory(run);
  *noted_ = {};
  int toTest[2];
  int toHost[2];
  ASSERT_EQ(::pipe(toTest), 0);
  ASSERT_EQ(::pipe(toHost), 0);
  const pid_t host = fork();
  if (host == 0) {
    ::close(toTest[0]);
    ::close(toHost[1]);
    PowerCuts cuts(run, cutShort, *noted_, toTest[1], toHost[0]);
    observeFileCalls(&cuts);
    upload50(run);
    _exit(0);
  }
  ::close(toTest[1]);
  ::close(toHost[0]);
  Cut cut{};
  int cuts = 0;
  while (!HasFailure() && ::read(toTest[0], &cut, sizeof cut) == sizeof cut) {
    ++cuts;
    SCOPED_TRACE("call " + std::to_string(cut.call) + ", survival " +
                 std::to_string(static_cast<int>(cut.survives)));
    checkWhatIsLeft(cutShort);
    const char go = 1;
    ASSERT_EQ(::write(toHost[1], &go, 1), 1);
  }
  ::close(toTest[0]);
  ::close(toHost[1]);
  int status = 0;
  ::waitpid(host, &status, 0);
  if (HasFailure()) return;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  // The run writes 50 files and about 100 logs, with at least four changes each, most of them laid
  // out in two or three ways.
  EXPECT_GT(cuts, 2 * 600 / kStride);
  EXPECT_GT(cut.call, 600);
}

}  // namespace
}  // namespace qx
