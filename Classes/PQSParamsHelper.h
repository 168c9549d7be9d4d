// The host's "tags" and "fields" as JSON text for the extra values, and back again for tracking.
//
// Threads: no state.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Classes/AWSBasicParameter.h"
#include "platform/Formats.h"
#include "platform/Host.h"
#include "platform/Value.h"

namespace qx {

class PQSParamsHelper {
 public:
  /// "tags" of a host dictionary, a list of texts, as JSON; nothing when it is none.
  static std::optional<std::string> tagsString(Json& json, const Dictionary& dictionary);
  /// "fields" of a host dictionary, a map, as JSON; nothing when it is none or has no JSON form.
  static std::optional<std::string> fieldsString(Json& json, QXTrackingEvents& tracker,
                                                 const Dictionary& dictionary);
  /// The list of texts in the extra value "tags"; nothing when it holds none.
  static std::optional<std::vector<std::string>> tagsArray(Json& json,
                                                           const AWSParameterMap& extra);
  /// The map in the extra value "fields"; nothing when it holds none.
  static std::optional<Dictionary> fieldsDictionary(Json& json, const AWSParameterMap& extra);
};

}  // namespace qx
