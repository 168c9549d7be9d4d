#include "platforms/shared/DefaultTrackingEvents.h"

#include <time.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace qx {
namespace {

std::optional<Value> dateText(Date date) {
  const double milliseconds = std::floor(date.secondsSince1970 * 1000);
  // The format has digits for the years 0000 to 9999 only.
  if (!(milliseconds >= -62167219200e3 && milliseconds < 253402300800e3)) return std::nullopt;
  const double seconds = std::floor(milliseconds / 1000);
  const auto time = static_cast<time_t>(seconds);
  tm parts{};
  if (::gmtime_r(&time, &parts) == nullptr) return std::nullopt;
  std::array<char, 112> text;
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                parts.tm_sec, static_cast<int>(milliseconds - seconds * 1000));
  return Value(text.data());
}

std::optional<Dictionary> codableMembers(const Dictionary& members);

std::optional<Value> codable(const Value& value) {
  if (value.asData() != nullptr || value.asHostObject() != nullptr) return std::nullopt;
  if (const double* number = value.asDouble(); number != nullptr && !std::isfinite(*number)) {
    return std::nullopt;
  }
  if (const Date* date = value.asDate()) return dateText(*date);
  if (const Array* elements = value.asArray()) {
    Array result;
    for (const Value& element : *elements) {
      std::optional<Value> converted = codable(element);
      if (!converted) return std::nullopt;
      result.push_back(*std::move(converted));
    }
    return Value(std::move(result));
  }
  if (const Dictionary* members = value.asDictionary()) {
    std::optional<Dictionary> result = codableMembers(*members);
    if (!result) return std::nullopt;
    return Value(*std::move(result));
  }
  return value;
}

std::optional<Dictionary> codableMembers(const Dictionary& members) {
  Dictionary result;
  for (const auto& [name, value] : members) {
    std::optional<Value> converted = codable(value);
    if (!converted) return std::nullopt;
    result.emplace(name, *std::move(converted));
  }
  return result;
}

}  // namespace

void DefaultTrackingEvents::tagItem(const std::string& /*itemType*/, std::int64_t /*itemId*/,
                                    const std::string& /*imageUrl*/,
                                    const std::optional<std::vector<std::string>>& /*tags*/,
                                    std::int64_t /*imageSource*/,
                                    const std::optional<Dictionary>& /*fields*/) {}

void DefaultTrackingEvents::updateItem(const std::optional<std::string>& /*itemType*/,
                                       std::int64_t /*itemId*/,
                                       const std::optional<std::vector<std::string>>& /*tags*/,
                                       const std::optional<Dictionary>& /*fields*/) {}

std::optional<Dictionary> DefaultTrackingEvents::anyCodable(const Dictionary& values) {
  return codableMembers(values);
}

}  // namespace qx
