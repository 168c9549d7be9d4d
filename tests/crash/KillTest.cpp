// Kills a host at every single change that it makes to the file system, and checks the host that
// goes on from there.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "crash/CrashFixture.h"
#include "crash/FileCalls.h"

namespace qx {
namespace {

constexpr int kParts = 4;
/// Processes start many times slower under a sanitizer.
constexpr int kStride = kSanitized ? 23 : 1;

class Kill : public CrashFixture {
 protected:
  /// Runs 50 uploads and kills the process at its `n`th change. False when the run had fewer
  /// changes.
  bool killedAt(int n, bool half) {
    std::filesystem::remove_all(documents_ + "/aws-0011");
    *noted_ = {};
    return !endsByItself([&] {
      killAtFileCall(n, half);
      upload50(documents_);
    });
  }
};

TEST_P(Kill, LosesNoAcceptedTaskAndRepeatsNoneThatIsGoneFromTheLog) {
  int points = 0;
  for (int n = 1 + GetParam() * kStride; !HasFailure(); n += kParts * kStride) {
    for (const bool half : {false, true}) {
      SCOPED_TRACE("call " + std::to_string(n) + (half ? ", half written" : ""));
      if (!killedAt(n, half)) {
        // The whole run writes 50 files and about 100 logs, with at least four calls each.
        EXPECT_GT(n, 600);
        EXPECT_GT(points, 0);
        return;
      }
      ++points;
      checkWhatIsLeft(documents_);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, Kill, testing::Range(0, kParts));

}  // namespace
}  // namespace qx
