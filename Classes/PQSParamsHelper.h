// Converts the host's "tags" and "fields" to JSON texts for the extra values, and back for
// tracking.
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
  /// "tags" of a host dictionary, a list of texts, as JSON. Nothing when there is no such list.
  static std::optional<std::string> tagsString(Json& json, const Dictionary& dictionary);
  /// "fields" of a host dictionary, a map, as JSON. Nothing when there is no map or JSON cannot
  /// hold it.
  static std::optional<std::string> fieldsString(Json& json, QXTrackingEvents& tracker,
                                                 const Dictionary& dictionary);
  /// The list of texts in the extra value "tags". Nothing when there is none.
  static std::optional<std::vector<std::string>> tagsArray(Json& json,
                                                           const AWSParameterMap& extra);
  /// The map in the extra value "fields". Nothing when there is none.
  static std::optional<Dictionary> fieldsDictionary(Json& json, const AWSParameterMap& extra);
};

}  // namespace qx
