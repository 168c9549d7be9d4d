// Property lists: written by hand in XML form, piece by piece; read in any form by libplist.
//
// Threads: no state; every operation may be called from any thread.
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
  /// Nesting deeper than 128 is refused, and a binary list whose containers are shared so often
  /// that it would grow beyond its own size.
  Result<Value> decode(const Data& bytes) override;
};

}  // namespace qx
