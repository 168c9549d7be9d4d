// A report of reachability that lags behind the present state of the network, and what the queue
// does then.
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "Classes/TaskQueue.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

/// Is always reachable, and tells its listeners what the test says.
class LaggingReachability : public QXNetworkingReachabilityTool {
 public:
  bool isReachable() override { return true; }
  void startListening(Listener listener) override { listeners_.push_back(std::move(listener)); }
  void report(bool reachable) {
    for (const Listener& listener : listeners_) listener(reachable, false);
  }

 private:
  std::vector<Listener> listeners_;
};

TEST(ReachabilityReportTest, OnlyTheReportOfAReachableNetworkStartsTheQueue) {
  LaggingReachability reachability;
  Library& library = keptLibrary(FakePlatform::kept().seams());
  const auto queue = TaskQueue::make(reachability, [] { return 1; });
  queue->add(library.uploader.makeExecutor(
      std::make_shared<DataTask>("a.jpg", "images", Data("bytes"), AWSParameterMap())));
  reachability.report(false);
  EXPECT_EQ(queue->waitingCount(), 1U);
  EXPECT_EQ(queue->concurrentCount(), 0);
  reachability.report(true);
  EXPECT_EQ(queue->waitingCount(), 0U);
}

}  // namespace
}  // namespace qx
