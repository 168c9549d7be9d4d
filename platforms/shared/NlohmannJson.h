// JSON by nlohmann-json, which only the .cpp file includes. A text that is nested deeper than 128,
// or whose values take more than 8 MiB of memory, is refused.
//
// Threads: no state. Every operation may be called from any thread.
#pragma once

#include <optional>
#include <string>

#include "platform/Formats.h"

namespace qx {

class NlohmannJson : public Json {
 public:
  std::optional<std::string> encode(const Value& value) override;
  std::optional<std::string> encode(const OrderedMembers& members) override;
  Result<Value> decode(const Data& text) override;
};

}  // namespace qx
