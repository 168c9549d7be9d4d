// Advice for errors of the library.
//
// Threads: pure functions.
#pragma once

#include <string>

#include "Output.h"
#include "platform/Error.h"

namespace qx::app {

/// A sentence that advises the person at the keyboard. `backendStatus` is the HTTP status of the
/// backend's answer when that was the cause, else 0.
std::string adviceFor(const Error& error, int backendStatus = 0);
/// The text of the error, a semicolon and the advice: "no such scope; ...".
std::string withAdvice(const Error& error, int backendStatus = 0);
/// The members "domain", "code" and "description".
Event errorFields(const Error& error);

}  // namespace qx::app
