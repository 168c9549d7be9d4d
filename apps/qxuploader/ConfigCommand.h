// "config": the settings in force and their sources, with secrets masked.
//
// Threads: only for the main thread.
#pragma once

#include "Output.h"
#include "Settings.h"

namespace qx::app {

/// Runs the command and yields the exit status.
int runConfig(const Settings& settings, Output& out);

}  // namespace qx::app
