// A line of "actions": a JSON object that becomes the parameters of an action, with the type of
// each value.
//
// Threads: only for the main thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Value.h"

namespace qx::app {

/// Makes the callback for {"callback": NAME} under `key` of `action`.
using CallbackMaker = std::function<Value(const std::string& action, const std::string& key,
                                          const std::string& name)>;

/// The full name of an action: "Upload:" becomes "Action_Upload:". A name with the prefix stays
/// unchanged.
std::string actionName(std::string_view name);

/// The parameters for the mediator. A value that is exactly {"file": TEXT} becomes the bytes of the
/// file, {"base64": TEXT} the decoded bytes, and a parameter {"callback": TEXT} a callback. Every
/// other value keeps its type. The error names the parameter that is wrong.
Result<Dictionary> actionParameters(const std::string& action, const Dictionary& params,
                                    const CallbackMaker& callback);

/// Decodes standard base64 with padding. Nothing for any other text.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace qx::app
