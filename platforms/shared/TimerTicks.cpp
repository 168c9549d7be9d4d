#include "platforms/shared/TimerTicks.h"

#include "platform/Error.h"

namespace qx {
namespace {

TickStep stepOfDue(Ticks ticks) {
  switch (ticks) {
    case Ticks::none:
      return {Ticks::posted, true};
    case Ticks::running:
      return {Ticks::runningPosted, true};
    case Ticks::runningAgain:
      return {Ticks::againPosted, true};
    case Ticks::posted:
    case Ticks::runningPosted:
    case Ticks::againPosted:
      break;
  }
  return {ticks, false};
}

TickStep stepOfBegun(Ticks ticks) {
  switch (ticks) {
    case Ticks::posted:
      return {Ticks::running, true};
    case Ticks::runningPosted:
    case Ticks::againPosted:
      return {Ticks::runningAgain, false};
    case Ticks::none:
    case Ticks::running:
    case Ticks::runningAgain:
      break;
  }
  fatal("a timer's tick begins that was never posted");
}

TickStep stepOfEnded(Ticks ticks) {
  switch (ticks) {
    case Ticks::running:
      return {Ticks::none, false};
    case Ticks::runningPosted:
      return {Ticks::posted, false};
    case Ticks::runningAgain:
      return {Ticks::running, true};
    case Ticks::againPosted:
      return {Ticks::runningPosted, true};
    case Ticks::none:
    case Ticks::posted:
      break;
  }
  fatal("a timer's handler ends that never ran");
}

}  // namespace

TickStep stepOf(Ticks ticks, TickEvent event) {
  switch (event) {
    case TickEvent::due:
      return stepOfDue(ticks);
    case TickEvent::begun:
      return stepOfBegun(ticks);
    case TickEvent::ended:
      return stepOfEnded(ticks);
  }
  fatal("a timer has no such event");
}

}  // namespace qx
