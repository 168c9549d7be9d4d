// The scalar extra values that belong to an upload. They are written to the stored log and sent to
// tracking.
//
// Threads: plain values.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>

#include "platform/Value.h"

namespace qx {

/// A signed or unsigned 64-bit integer, a 32-bit or 64-bit float, or a text.
class AWSBasicParameter {
 public:
  AWSBasicParameter(std::int64_t v) : value_(v) {}
  AWSBasicParameter(std::uint64_t v) : value_(v) {}
  AWSBasicParameter(float v) : value_(v) {}
  AWSBasicParameter(double v) : value_(v) {}
  AWSBasicParameter(std::string v) : value_(std::move(v)) {}
  AWSBasicParameter(std::string_view v) : value_(std::string(v)) {}
  AWSBasicParameter(const char* v) : value_(std::string(v)) {}

  /// The value as an integer. A float is truncated toward zero, and a text follows textToInt().
  /// Fatal for an unsigned integer above 2^63 - 1 and for a float that is not finite or outside
  /// [-2^63, 2^63), because there is no way to report a failure and callers do not use such values.
  std::int64_t toInt() const;
  /// The value as a text: an integer in decimal, a float as shortestText(), a text unchanged.
  std::string toString() const;

  // Each of these yields the content when the value has exactly that type, else null.
  const std::int64_t* asInt() const { return std::get_if<std::int64_t>(&value_); }
  const std::uint64_t* asUInt() const { return std::get_if<std::uint64_t>(&value_); }
  const float* asFloat() const { return std::get_if<float>(&value_); }
  const double* asDouble() const { return std::get_if<double>(&value_); }
  const std::string* asText() const { return std::get_if<std::string>(&value_); }

  friend bool operator==(const AWSBasicParameter&, const AWSBasicParameter&) = default;

 private:
  std::variant<std::int64_t, std::uint64_t, float, double, std::string> value_;
};

/// The extra values of a task, by their keys.
using AWSParameterMap = std::map<std::string, AWSBasicParameter>;
/// An entry of the stored log: maps sections to keys and values.
using AWSLogEntry = std::map<std::string, AWSParameterMap>;
/// The stored log: maps file names to entries.
using AWSLogMap = std::map<std::string, AWSLogEntry>;

/// The integer in a text: an optional sign, then ASCII digits and nothing else, within the signed
/// 64-bit range. 0 for any other text.
std::int64_t textToInt(std::string_view text);

/// Turns a decoded property list into parameters with the same keys. A leaf becomes the first of
/// Int, Double, UInt and Float that holds it exactly (a boolean counts as 1 or 0), or else a text.
/// A leaf that is neither a number nor a text becomes the empty text.
AWSLogMap AWSBasicParameterConvert(
    const std::map<std::string, std::map<std::string, std::map<std::string, Value>>>& map);

}  // namespace qx
