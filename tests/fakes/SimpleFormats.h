// JSON and XML property lists written out in plain C++, for tests that must not depend on the
// libraries of the real platform. They read what this project and its tests write; of property
// lists they read the XML form only.
//
//     SimpleJson json;
//     json.encode(Value(Dictionary{{"id", 7}}));  // {"id":7}
//     json.decode(Data("[1, 2]"));                // Value(Array{1, 2})
//
// Threads: no state. Every operation may be called from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Formats.h"

namespace qx {

class SimpleJson : public Json {
 public:
  std::optional<std::string> encode(const Value& value) override;
  std::optional<std::string> encode(const OrderedMembers& members) override;
  Result<Value> decode(const Data& text) override;
};

class SimplePropertyLists : public PropertyLists {
 public:
  std::string_view documentStart() override;
  std::string_view documentEnd() override;
  std::optional<std::string> element(const Value& value) override;
  std::optional<std::string> key(std::string_view name) override;
  Result<Value> decode(const Data& bytes) override;
};

}  // namespace qx
