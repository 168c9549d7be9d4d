// "config": the settings in force and where each came from, secrets masked.
//
// Threads: the main thread only.
#pragma once

#include "Output.h"
#include "Settings.h"

namespace qx::app {

/// The exit status.
int runConfig(const Settings& settings, Output& out);

}  // namespace qx::app
