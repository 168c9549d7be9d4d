// Tells the developer of a host what is wrong with the dictionary of an action.
//
//     for (const std::string& sentence :
//          ActionMistakes::inParameters("Action_Upload:", parameters, imageHeaders)) ...
//
// Threads: any thread; it keeps no state.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Formats.h"
#include "platform/Value.h"

namespace qx {

class ActionMistakes {
 public:
  /// One sentence for each required key that is missing, each value of another type than the action
  /// reads, each key that the action does not read, and each value that cannot work. It names keys
  /// and types, never what a value holds. Nothing for an action that is none of the seven.
  static std::vector<std::string> inParameters(std::string_view action,
                                               const Dictionary& parameters,
                                               ImageHeaders& imageHeaders);
};

}  // namespace qx
