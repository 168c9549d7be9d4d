// What the store says when it refuses: its XML error record, and the error value made from it.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Http.h"

namespace qx {

/// The text of the first <name> element without children, entities resolved, control characters
/// and broken UTF-8 replaced, at most 512 bytes. Empty when there is none. No more of XML is read.
std::string xmlElementText(std::string_view xml, std::string_view name);

/// The error of an answer that is no success, as ObjectStore.h describes it. The secrets in force
/// and `secrets` are left out of what the store says.
Error storeError(const HttpAnswer& answer, const std::vector<std::string_view>& secrets);

}  // namespace qx
