// Reads JSON bodies for the tests of the messages, in plain C++.
//
// Threads: no state.
#pragma once

#include "fakes/SimpleFormats.h"
#include "platform/Networking.h"

namespace qx {

class JsonDecoder : public APIDecoder {
 public:
  Result<Value> decode(const Data& body) const override { return SimpleJson().decode(body); }
  /// Dates are whole seconds since 1970 here, because their real form is a matter of the decoder.
  Result<Date> date(const Value& value) const override {
    if (const auto* seconds = value.asInt()) return Date{static_cast<double>(*seconds)};
    return Error{"APIDecoder", 1, "not a date"};
  }
};

/// Yields the fields of a message unchanged.
class PlainEncoder : public APIEncoder {
 public:
  OrderedMembers encode(OrderedMembers fields) const override { return fields; }
};

}  // namespace qx
