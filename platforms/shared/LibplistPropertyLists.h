// Property lists. Our own code writes them in XML form, piece by piece; libplist reads any form.
//
// Threads: no state. Every operation may be called from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Formats.h"

namespace qx {

class LibplistPropertyLists : public PropertyLists {
 public:
  std::string_view documentStart() override;
  std::string_view documentEnd() override;
  std::optional<std::string> element(const Value& value) override;
  std::optional<std::string> key(std::string_view name) override;
  /// Refuses nesting deeper than 128, and a binary list whose containers are shared so often that
  /// the result would be larger than the list.
  Result<Value> decode(const Data& bytes) override;
};

}  // namespace qx
