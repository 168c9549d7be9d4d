// A running operation that can be ended early.
//
//     const std::shared_ptr<qx::Cancellable> exchange = http.send(request, answered);
//     exchange->cancel();
//
// Threads: cancel() may be called from any thread.
#pragma once

namespace qx {

/// The handle of a running operation. The operation goes on when the handle is destroyed.
class Cancellable {
 public:
  virtual ~Cancellable() = default;
  /// Ends the operation, unless it has ended already. Its completion gets an error. A second call
  /// does nothing.
  virtual void cancel() = 0;
};

}  // namespace qx
