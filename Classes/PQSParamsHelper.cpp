#include "Classes/PQSParamsHelper.h"

#include <utility>

namespace qx {
namespace {

/// The extra value under `key`, parsed as JSON. Nothing when it is no text or no JSON.
std::optional<Value> parsed(Json& json, const AWSParameterMap& extra, const char* key) {
  const auto entry = extra.find(key);
  const std::string* text = entry == extra.end() ? nullptr : entry->second.asText();
  if (text == nullptr) return std::nullopt;
  Result<Value> value = json.decode(Data(*text));
  if (!value) return std::nullopt;
  return std::move(*value);
}

}  // namespace

std::optional<std::string> PQSParamsHelper::tagsString(Json& json, const Dictionary& dictionary) {
  const auto tags = readTextList(dictionary, "tags");
  if (!tags) return std::nullopt;
  return json.encode(Value(Array(tags->begin(), tags->end())));
}

std::optional<std::string> PQSParamsHelper::fieldsString(Json& json, QXTrackingEvents& tracker,
                                                         const Dictionary& dictionary) {
  const auto fields = readDictionary(dictionary, "fields");
  if (!fields) return std::nullopt;
  const auto encodable = tracker.anyCodable(*fields);
  if (!encodable) return std::nullopt;
  return json.encode(Value(*encodable));
}

std::optional<std::vector<std::string>> PQSParamsHelper::tagsArray(Json& json,
                                                                   const AWSParameterMap& extra) {
  auto value = parsed(json, extra, "tags");
  if (!value) return std::nullopt;
  return readTextList({{"tags", std::move(*value)}}, "tags");
}

std::optional<Dictionary> PQSParamsHelper::fieldsDictionary(Json& json,
                                                            const AWSParameterMap& extra) {
  const auto value = parsed(json, extra, "fields");
  const Dictionary* fields = value ? value->asDictionary() : nullptr;
  return fields ? std::optional<Dictionary>(*fields) : std::nullopt;
}

}  // namespace qx
