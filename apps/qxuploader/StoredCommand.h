// The common part of "status", "tasks list" and "tasks drop": they look at the tasks stored for the
// user and send nothing.
//
// Threads: see Session.
#pragma once

#include <optional>
#include <vector>

#include "ListedTask.h"
#include "Session.h"
#include "UnknownScopes.h"

namespace qx::app {

class StoredCommand : public Session {
 public:
  using Session::Session;

 protected:
  /// Shows the stored tasks, or changes them.
  virtual void show(const std::vector<ListedTask>& tasks) = 0;
  void onEvent(const Dictionary& event) override;
  UnknownScopes unknownScopes();
  /// The reason why the stored tasks could not be opened.
  const std::optional<Error>& unavailable() const { return unavailable_; }

 private:
  void begin() override;
  void interrupted() override;

  std::optional<Error> unavailable_;
};

}  // namespace qx::app
