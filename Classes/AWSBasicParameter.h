// The scalar extra values that travel with an upload, into the stored log and into tracking.
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

/// One scalar: a signed or unsigned 64-bit integer, a 32-bit or 64-bit float, or a text.
class AWSBasicParameter {
 public:
  AWSBasicParameter(std::int64_t v) : value_(v) {}
  AWSBasicParameter(std::uint64_t v) : value_(v) {}
  AWSBasicParameter(float v) : value_(v) {}
  AWSBasicParameter(double v) : value_(v) {}
  AWSBasicParameter(std::string v) : value_(std::move(v)) {}
  AWSBasicParameter(std::string_view v) : value_(std::string(v)) {}
  AWSBasicParameter(const char* v) : value_(std::string(v)) {}

  /// Floats truncate toward zero, texts follow textToInt. Fatal for an unsigned integer above
  /// 2^63 - 1 and for a float that is not finite or outside [-2^63, 2^63): there is no failure
  /// channel, callers do not feed such values.
  std::int64_t toInt() const;
  /// Integers in decimal; floats as shortestText; a text as it stands.
  std::string toString() const;

  // The content when it is of exactly that kind, else null.
  const std::int64_t* asInt() const { return std::get_if<std::int64_t>(&value_); }
  const std::uint64_t* asUInt() const { return std::get_if<std::uint64_t>(&value_); }
  const float* asFloat() const { return std::get_if<float>(&value_); }
  const double* asDouble() const { return std::get_if<double>(&value_); }
  const std::string* asText() const { return std::get_if<std::string>(&value_); }

  friend bool operator==(const AWSBasicParameter&, const AWSBasicParameter&) = default;

 private:
  std::variant<std::int64_t, std::uint64_t, float, double, std::string> value_;
};

/// A task's extra values.
using AWSParameterMap = std::map<std::string, AWSBasicParameter>;
/// One entry of the stored log: section, key.
using AWSLogEntry = std::map<std::string, AWSParameterMap>;
/// The stored log: file name, section, key.
using AWSLogMap = std::map<std::string, AWSLogEntry>;

/// The integer that a text stands for: an optional sign, then ASCII digits and nothing else, within
/// the signed 64-bit range. Any other text, the empty one included, is 0.
std::int64_t textToInt(std::string_view text);

/// Turns a freshly decoded property list into parameters, keys unchanged. A leaf becomes the first
/// of: Int, Double, UInt, Float that holds it exactly (a boolean counts as 1 or 0), then text;
/// anything else becomes the empty text.
AWSLogMap AWSBasicParameterConvert(
    const std::map<std::string, std::map<std::string, std::map<std::string, Value>>>& map);

}  // namespace qx
