// The command that prints the access token.
//
// Threads: only for the main thread, before other threads run.
#pragma once

#include <string>

#include "platform/Error.h"

namespace qx::app {

/// Runs the shell command and yields its output without the line breaks at its end. The error tells
/// why there is no token: "failed with exit status 3", "printed more than 64 KiB", "took over 30
/// s".
Result<std::string> outputOfTokenCommand(const std::string& command);

}  // namespace qx::app
