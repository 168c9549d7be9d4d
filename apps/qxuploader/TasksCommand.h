// "tasks list" and "tasks drop": the stored tasks one by one. Nothing is sent.
//
// Threads: the main thread only.
#pragma once

#include <string>
#include <vector>

#include "Output.h"
#include "Settings.h"

namespace qx::app {

/// The exit status, as that of the next.
int runTasksList(const Settings& settings, Output& out);
/// Removes stored tasks by the names that "tasks list" tells. The caller has locked the documents
/// directory.
int runTasksDrop(const Settings& settings, Output& out, const std::vector<std::string>& names);

}  // namespace qx::app
