// Reads the library's events.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Value.h"

namespace qx::app {

/// The text under `key`, or an empty text.
std::string textOf(const Dictionary& event, std::string_view key);
/// The boolean under `key`, or false.
bool flagOf(const Dictionary& event, std::string_view key);
/// The integer under `key`, or 0.
std::int64_t numberOf(const Dictionary& event, std::string_view key);
/// The failure in an event.
Error errorOf(const Dictionary& event);
/// The HTTP status of the backend's answer that caused a failure, else 0.
int backendStatusOf(const Dictionary& event);

}  // namespace qx::app
