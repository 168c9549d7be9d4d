#include "ActionLine.h"

#include <openssl/evp.h>

#include <limits>
#include <optional>
#include <utility>

#include "WholeFile.h"

namespace qx::app {
namespace {

/// The text under the only key of a dictionary, when that is `key`.
std::optional<std::string> onlyText(const Dictionary& dictionary, std::string_view key) {
  if (dictionary.size() != 1) return std::nullopt;
  return readText(dictionary, key);
}

Error wrong(const std::string& key, const std::string& why) {
  return {"qxuploader", 0, "parameter \"" + key + "\": " + why};
}

/// Replaces {"file": PATH} and {"base64": TEXT} anywhere in `value` by bytes.
std::optional<Error> fillInBytes(const std::string& key, Value& value) {
  if (const Array* elements = value.asArray()) {
    Array filled = *elements;
    for (Value& element : filled) {
      if (auto error = fillInBytes(key, element)) return error;
    }
    value = std::move(filled);
    return std::nullopt;
  }
  if (value.asDictionary() == nullptr) return std::nullopt;
  Dictionary filled = *value.asDictionary();
  if (const auto path = onlyText(filled, "file")) {
    auto bytes = readWholeFile(*path);
    if (!bytes) return wrong(key, *path + ": " + bytes.error().description);
    value = *std::move(bytes);
    return std::nullopt;
  }
  if (const auto text = onlyText(filled, "base64")) {
    auto bytes = fromBase64(*text);
    if (!bytes) return wrong(key, "not base64");
    value = Data(*std::move(bytes));
    return std::nullopt;
  }
  for (auto& [name, entry] : filled) {
    if (auto error = fillInBytes(key, entry)) return error;
  }
  value = std::move(filled);
  return std::nullopt;
}

}  // namespace

std::string actionName(std::string_view name) {
  constexpr std::string_view kPrefix = "Action_";
  return name.substr(0, kPrefix.size()) == kPrefix ? std::string(name)
                                                   : std::string(kPrefix) + std::string(name);
}

Result<Dictionary> actionParameters(const std::string& action, const Dictionary& params,
                                    const CallbackMaker& callback) {
  Dictionary result = params;
  for (auto& [key, value] : result) {
    const Dictionary* dictionary = value.asDictionary();
    const auto name = dictionary != nullptr ? onlyText(*dictionary, "callback") : std::nullopt;
    if (name) {
      value = callback(action, key, *name);
    } else if (auto error = fillInBytes(key, value)) {
      return *std::move(error);
    }
  }
  return result;
}

std::optional<std::string> fromBase64(std::string_view text) {
  if (text.size() % 4 != 0 || text.size() > std::numeric_limits<int>::max()) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  // The decoder below also accepts blanks at both ends and "=" in places where it has no meaning.
  const std::size_t padding = text.find('=');
  const std::size_t digits = padding == std::string_view::npos ? text.size() : padding;
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  if (text.size() - digits > 2 || text.substr(digits).find_first_not_of('=') != text.npos ||
      text.substr(0, digits).find_first_not_of(kDigits) != text.npos) {
    return std::nullopt;
  }
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                   reinterpret_cast<const unsigned char*>(text.data()),
                                   static_cast<int>(text.size()));
  if (size < 0) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(size) - (text.size() - digits));
  return bytes;
}

}  // namespace qx::app
