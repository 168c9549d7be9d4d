// "status": what is stored and not yet uploaded. Changes nothing and sends nothing.
//
// Threads: the main thread only.
#pragma once

#include "Output.h"
#include "Settings.h"

namespace qx::app {

/// The exit status.
int runStatus(const Settings& settings, Output& out, bool verbose);

}  // namespace qx::app
