// One line of "actions": a JSON object that becomes an action's parameters, type by type.
//
// Threads: the main thread only.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Error.h"
#include "platform/Value.h"

namespace qx::app {

/// Makes the callback that stands for {"callback": NAME} under `key` of `action`.
using CallbackMaker = std::function<Value(const std::string& action, const std::string& key,
                                          const std::string& name)>;

/// "Upload:" becomes "Action_Upload:"; a name that has the prefix stays as it is.
std::string actionName(std::string_view name);

/// The parameters as the mediator takes them. A value that is exactly {"file": TEXT} becomes the
/// file's bytes, {"base64": TEXT} the bytes it stands for, a parameter {"callback": TEXT} a
/// callback; everything else keeps its type. The error says which parameter is wrong.
Result<Dictionary> actionParameters(const std::string& action, const Dictionary& params,
                                    const CallbackMaker& callback);

/// Standard base64 with padding; nothing for anything else.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace qx::app
