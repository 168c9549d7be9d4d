// What "status", "tasks list" and "tasks drop" have in common: they look at what is stored for the
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
  /// Shows what is stored, or changes it.
  virtual void show(const std::vector<ListedTask>& tasks) = 0;
  void onEvent(const Dictionary& event) override;
  UnknownScopes unknownScopes();
  /// Why what is stored could not be opened.
  const std::optional<Error>& unavailable() const { return unavailable_; }

 private:
  void begin() override;
  void interrupted() override;

  std::optional<Error> unavailable_;
};

}  // namespace qx::app
