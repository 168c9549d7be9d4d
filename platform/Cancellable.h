// Something under way that can be ended early.
//
//     const std::shared_ptr<qx::Cancellable> exchange = http.send(request, answered);
//     exchange->cancel();
//
// Threads: cancel may be called from any thread.
#pragma once

namespace qx {

/// It goes on when its handle is let go.
class Cancellable {
 public:
  virtual ~Cancellable() = default;
  /// Ends it: whoever waits for its end hears of an error, unless it has ended already. A second
  /// call does nothing.
  virtual void cancel() = 0;
};

}  // namespace qx
