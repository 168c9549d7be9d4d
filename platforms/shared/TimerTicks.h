// The ticks of a timer that are on their way, as a table: one handler runs at a time, and ticks
// that fall due meanwhile become one tick.
//
//                     due                  begun                    ended
//   none              posted: post         -                        -
//   posted            posted               running: call            -
//   running           runningPosted: post  -                        none
//   runningPosted     runningPosted        runningAgain             posted
//   runningAgain      againPosted: post    -                        running: call
//   againPosted       againPosted          runningAgain             runningPosted: call
//
// A tick is "posted" from the time when it is put on the queue until it begins to run there. It may
// begin while the handler still runs, on another thread of the same queue; then the handler runs
// again.
//
// Threads: plain values and a pure function.
#pragma once

namespace qx {

enum class Ticks { none, posted, running, runningPosted, runningAgain, againPosted };

enum class TickEvent {
  /// The timer's interval is over.
  due,
  /// A posted tick begins to run on the queue.
  begun,
  /// The handler has returned.
  ended,
};

struct TickStep {
  Ticks next;
  /// True: after the event `due` post a tick, after `begun` or `ended` call the handler.
  bool act;
};

TickStep stepOf(Ticks ticks, TickEvent event);

}  // namespace qx
