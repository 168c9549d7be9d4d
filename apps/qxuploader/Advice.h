// What to do about an error of the library.
//
// Threads: pure functions.
#pragma once

#include <string>

#include "Output.h"
#include "platform/Error.h"

namespace qx::app {

/// A sentence that tells the person at the keyboard what to try. `backendStatus` is the HTTP status
/// of the backend's answer when that was the reason, else 0.
std::string adviceFor(const Error& error, int backendStatus = 0);
/// "no such scope; ...": the error's text, a semicolon, the advice.
std::string withAdvice(const Error& error, int backendStatus = 0);
/// {"domain", "code", "description"}.
Event errorFields(const Error& error);

}  // namespace qx::app
