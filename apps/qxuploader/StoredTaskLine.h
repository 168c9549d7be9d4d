// How a stored task looks to a person and to a script.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Output.h"
#include "StoredTasks.h"
#include "UnknownScopes.h"

namespace qx::app {

/// Why no attempt of this task can succeed, as far as that is known; empty when one may.
std::string whyStuck(const StoredTask& task, const UnknownScopes& scopes);
/// "3 failed attempts".
std::string attemptsText(std::int64_t attempts);
/// "/photos/a.jpg  avatar  512 B  2026-11-21T00:30:00Z  3 failed attempts".
std::string taskLine(const StoredTask& task);
/// The event "task"; `reason` is what whyStuck() says.
Event taskEvent(const StoredTask& task, const std::string& reason);
/// The time as a text, or null.
Event timeOrNull(const std::optional<double>& time);

}  // namespace qx::app
