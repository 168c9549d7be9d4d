#include "platform/Value.h"

#include <limits>

namespace qx {
namespace {

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

template <typename T>
std::optional<T> copied(const T* content) {
  return content ? std::optional<T>(*content) : std::nullopt;
}

}  // namespace

Value::Value(Array v) : state_(std::move(v)) {}
Value::Value(Dictionary v) : state_(std::move(v)) {}

bool operator==(const Value& a, const Value& b) {
  return a.state_ == b.state_;
}

std::optional<bool> readBool(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? copied(value->asBool()) : std::nullopt;
}

std::optional<std::int64_t> readInt(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  if (value == nullptr) return std::nullopt;
  if (const std::uint64_t* u = value->asUInt()) {
    if (*u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(*u);
  }
  return copied(value->asInt());
}

std::optional<double> readDouble(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? copied(value->asDouble()) : std::nullopt;
}

std::optional<std::string> readText(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? copied(value->asText()) : std::nullopt;
}

std::optional<Data> readData(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? copied(value->asData()) : std::nullopt;
}

std::optional<Dictionary> readDictionary(const Dictionary& dictionary, std::string_view key) {
  const Value* value = find(dictionary, key);
  return value ? copied(value->asDictionary()) : std::nullopt;
}

std::optional<std::vector<std::string>> readTextList(const Dictionary& dictionary,
                                                     std::string_view key) {
  const Value* value = find(dictionary, key);
  const Array* array = value ? value->asArray() : nullptr;
  if (array == nullptr) return std::nullopt;
  std::vector<std::string> texts;
  texts.reserve(array->size());
  for (const Value& element : *array) {
    const std::string* text = element.asText();
    if (text == nullptr) return std::nullopt;
    texts.push_back(*text);
  }
  return texts;
}

std::optional<std::map<std::string, std::string>> readTextMap(const Dictionary& dictionary,
                                                              std::string_view key) {
  const Value* value = find(dictionary, key);
  const Dictionary* map = value ? value->asDictionary() : nullptr;
  if (map == nullptr) return std::nullopt;
  std::map<std::string, std::string> texts;
  for (const auto& [name, element] : *map) {
    const std::string* text = element.asText();
    if (text == nullptr) return std::nullopt;
    texts.emplace(name, *text);
  }
  return texts;
}

}  // namespace qx
