#include "Classes/AWSBasicParameter.h"

#include <cmath>
#include <limits>
#include <type_traits>

#include "Classes/NumberText.h"
#include "platform/Error.h"

namespace qx {
namespace {

/// Both bounds are powers of two, so both floating types hold them exactly.
template <typename Float>
bool truncationFits(Float value) {
  return value >= Float{-0x1p63} && value < Float{0x1p63};
}

bool holdsExactly(double value, std::uint64_t expected) {
  // 2^64 - 1 and its neighbours round up to 2^64, which cannot be converted back.
  return value < 0x1p64 && static_cast<std::uint64_t>(value) == expected;
}

AWSBasicParameter convertLeaf(const Value& leaf) {
  if (const bool* flag = leaf.asBool()) return std::int64_t{*flag ? 1 : 0};
  if (const std::int64_t* integer = leaf.asInt()) return *integer;
  if (const std::uint64_t* integer = leaf.asUInt()) {
    if (*integer <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return static_cast<std::int64_t>(*integer);
    }
    const auto real = static_cast<double>(*integer);
    if (holdsExactly(real, *integer)) return real;
    return *integer;
  }
  if (const double* real = leaf.asDouble()) {
    if (truncationFits(*real) && std::trunc(*real) == *real)
      return static_cast<std::int64_t>(*real);
    return *real;
  }
  // No leaf becomes a Float: a decoded number is an integer or a 64-bit real, and one of the types
  // before Float holds it exactly.
  if (const std::string* text = leaf.asText()) return *text;
  return "";
}

}  // namespace

std::int64_t AWSBasicParameter::toInt() const {
  return std::visit(
      [](const auto& v) -> std::int64_t {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return textToInt(v);
        } else if constexpr (std::is_floating_point_v<T>) {
          if (!truncationFits(v)) fatal(shortestText(v) + " is outside the signed 64-bit range");
          return static_cast<std::int64_t>(v);
        } else if constexpr (std::is_unsigned_v<T>) {
          if (v > static_cast<T>(std::numeric_limits<std::int64_t>::max())) {
            fatal(std::to_string(v) + " is outside the signed 64-bit range");
          }
          return static_cast<std::int64_t>(v);
        } else {
          return v;
        }
      },
      value_);
}

std::string AWSBasicParameter::toString() const {
  return std::visit(
      [](const auto& v) -> std::string {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return v;
        } else if constexpr (std::is_floating_point_v<T>) {
          return shortestText(v);
        } else {
          return std::to_string(v);
        }
      },
      value_);
}

std::int64_t textToInt(std::string_view text) {
  return parseDecimal(text).value_or(0);
}

AWSLogMap AWSBasicParameterConvert(
    const std::map<std::string, std::map<std::string, std::map<std::string, Value>>>& map) {
  AWSLogMap converted;
  for (const auto& [outerKey, middle] : map) {
    AWSLogEntry& entry = converted[outerKey];
    for (const auto& [middleKey, leaves] : middle) {
      AWSParameterMap& parameters = entry[middleKey];
      for (const auto& [key, leaf] : leaves) parameters.emplace(key, convertLeaf(leaf));
    }
  }
  return converted;
}

}  // namespace qx
