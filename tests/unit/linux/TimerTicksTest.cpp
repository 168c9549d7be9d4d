// The table of a timer's ticks.
#include "platforms/shared/TimerTicks.h"

#include <gtest/gtest.h>

#include <vector>

namespace qx {
namespace {

struct Row {
  Ticks from;
  TickEvent event;
  Ticks to;
  bool act;
};

TEST(TimerTicks, EveryStepIsThatOfTheTable) {
  const std::vector<Row> rows = {
      {Ticks::none, TickEvent::due, Ticks::posted, true},
      {Ticks::posted, TickEvent::due, Ticks::posted, false},
      {Ticks::running, TickEvent::due, Ticks::runningPosted, true},
      {Ticks::runningPosted, TickEvent::due, Ticks::runningPosted, false},
      {Ticks::runningAgain, TickEvent::due, Ticks::againPosted, true},
      {Ticks::againPosted, TickEvent::due, Ticks::againPosted, false},
      {Ticks::posted, TickEvent::begun, Ticks::running, true},
      {Ticks::runningPosted, TickEvent::begun, Ticks::runningAgain, false},
      {Ticks::againPosted, TickEvent::begun, Ticks::runningAgain, false},
      {Ticks::running, TickEvent::ended, Ticks::none, false},
      {Ticks::runningPosted, TickEvent::ended, Ticks::posted, false},
      {Ticks::runningAgain, TickEvent::ended, Ticks::running, true},
      {Ticks::againPosted, TickEvent::ended, Ticks::runningPosted, true},
  };
  for (const Row& row : rows) {
    const TickStep step = stepOf(row.from, row.event);
    EXPECT_EQ(step.next, row.to) << static_cast<int>(row.from) << static_cast<int>(row.event);
    EXPECT_EQ(step.act, row.act) << static_cast<int>(row.from) << static_cast<int>(row.event);
  }
}

TEST(TimerTicks, HandlerRunsOnceForEachTickThatBeganWhileItDidNotRun) {
  // A serial queue: due, begun, due, due, ended, begun, ended.
  Ticks ticks = Ticks::none;
  int posts = 0;
  int calls = 0;
  for (const TickEvent event : {TickEvent::due, TickEvent::begun, TickEvent::due, TickEvent::due,
                                TickEvent::ended, TickEvent::begun, TickEvent::ended}) {
    const TickStep step = stepOf(ticks, event);
    ticks = step.next;
    if (step.act) ++(event == TickEvent::due ? posts : calls);
  }
  EXPECT_EQ(ticks, Ticks::none);
  EXPECT_EQ(posts, 2);
  EXPECT_EQ(calls, 2);
}

TEST(TimerTicksDeathTest, StepThatCannotBeStopsTheProcess) {
  EXPECT_DEATH(stepOf(Ticks::none, TickEvent::begun), "never posted");
  EXPECT_DEATH(stepOf(Ticks::running, TickEvent::begun), "never posted");
  EXPECT_DEATH(stepOf(Ticks::none, TickEvent::ended), "never ran");
}

}  // namespace
}  // namespace qx
