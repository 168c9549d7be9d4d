// The command that prints the access token.
//
// Threads: the main thread, before others run.
#pragma once

#include <string>

#include "platform/Error.h"

namespace qx::app {

/// Runs the shell command and gives what it printed, without the line breaks at the end. The
/// error's text says why there is none: "failed with exit status 3", "printed more than 64 KiB",
/// "took over 30 s".
Result<std::string> outputOfTokenCommand(const std::string& command);

}  // namespace qx::app
