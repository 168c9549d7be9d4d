// "status": shows the stored tasks. It changes nothing and sends nothing.
//
// Threads: see Session.
#pragma once

#include <vector>

#include "StoredCommand.h"

namespace qx::app {

class StatusCommand : public StoredCommand {
 public:
  using StoredCommand::StoredCommand;

 private:
  void show(const std::vector<ListedTask>& tasks) override;
};

}  // namespace qx::app
