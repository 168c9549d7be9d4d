// The store's answer to a refused request: its XML error record, and the error value that is made
// from it.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Http.h"

namespace qx {

/// The text of the first <name> element without children: entities are resolved, control characters
/// and broken UTF-8 are replaced, and 512 bytes are the most. Empty when there is no such element.
/// Nothing else of XML is read.
std::string xmlElementText(std::string_view xml, std::string_view name);

/// The error of an answer that is no success, as ObjectStore.h describes it. The secrets in force
/// and `secrets` are removed from the store's texts.
Error storeError(const HttpAnswer& answer, const std::vector<std::string_view>& secrets);

}  // namespace qx
