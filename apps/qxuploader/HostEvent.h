// Reads the events that the library tells.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Value.h"

namespace qx::app {

/// The text under `key`; empty when there is none.
std::string textOf(const Dictionary& event, std::string_view key);
/// False when there is none.
bool flagOf(const Dictionary& event, std::string_view key);
/// 0 when there is none.
std::int64_t numberOf(const Dictionary& event, std::string_view key);
/// The failure that an event tells of.
Error errorOf(const Dictionary& event);
/// The HTTP status of the backend's answer when that was the reason of a failure, else 0.
int backendStatusOf(const Dictionary& event);

}  // namespace qx::app
