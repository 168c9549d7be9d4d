// Finds mistakes in the dictionary of an action, for the host's developer.
//
//     for (const std::string& sentence :
//          ActionMistakes::inParameters("Action_Upload:", parameters, imageHeaders)) ...
//
// Threads: the function may be called from any thread. It keeps no state.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Formats.h"
#include "platform/Value.h"

namespace qx {

class ActionMistakes {
 public:
  /// Yields one sentence for each required key that is missing, each value whose type is not the
  /// one that the action reads, each key that the action does not read, and each value that cannot
  /// be used. The sentences name keys and types, never the content of a value. Empty for an action
  /// that is none of the seven.
  static std::vector<std::string> inParameters(std::string_view action,
                                               const Dictionary& parameters,
                                               ImageHeaders& imageHeaders);
};

}  // namespace qx
