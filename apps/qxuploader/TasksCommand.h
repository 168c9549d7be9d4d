// "tasks list" and "tasks drop": show and drop single stored tasks. Nothing is sent.
//
// Threads: see Session.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "StoredCommand.h"

namespace qx::app {

class TasksListCommand : public StoredCommand {
 public:
  using StoredCommand::StoredCommand;

 private:
  void show(const std::vector<ListedTask>& tasks) override;
};

/// Removes stored tasks by the names that "tasks list" shows.
class TasksDropCommand : public StoredCommand {
 public:
  TasksDropCommand(const Context& context, std::vector<std::string> names);

 private:
  void show(const std::vector<ListedTask>& tasks) override;
  void onEvent(const Dictionary& event) override;
  void drop(const std::vector<ListedTask>& tasks);
  void tellDropped(const std::vector<ListedTask>& tasks);

  const std::vector<std::string> names_;
  std::set<std::string> dropped_;
  std::optional<Error> failure_;
  int status_ = kAllDone;
};

}  // namespace qx::app
