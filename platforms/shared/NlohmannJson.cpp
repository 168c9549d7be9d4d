#include "platforms/shared/NlohmannJson.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "platform/Utf8.h"

namespace qx {
namespace {

constexpr std::size_t kDepthLimit = 128;
/// The memory that the values of one text may take, without the text itself. The size of the text
/// is no limit, because two bytes of text ("0,") may need a hundred bytes of memory.
constexpr std::size_t kMemoryLimit = std::size_t{8} << 20;

/// Appends the JSON text of `text`, with "/" written as "\/". False when `text` is not UTF-8.
bool writeText(std::string& out, const std::string& text) {
  if (!isUtf8(text)) return false;
  for (const char c : nlohmann::json(text).dump()) {
    if (c == '/') out.push_back('\\');
    out.push_back(c);
  }
  return true;
}

bool write(std::string& out, const Value& value);

template <typename Members>
bool writeMembers(std::string& out, const Members& members) {
  char separator = '{';
  for (const auto& [name, value] : members) {
    out.push_back(std::exchange(separator, ','));
    if (!writeText(out, name)) return false;
    out.push_back(':');
    if (!write(out, value)) return false;
  }
  if (separator == '{') out.push_back('{');
  out.push_back('}');
  return true;
}

bool write(std::string& out, const Value& value) {
  if (value.isNull()) {
    out += "null";
  } else if (const bool* flag = value.asBool()) {
    out += *flag ? "true" : "false";
  } else if (const std::int64_t* integer = value.asInt()) {
    out += std::to_string(*integer);
  } else if (const std::uint64_t* natural = value.asUInt()) {
    out += std::to_string(*natural);
  } else if (const double* number = value.asDouble()) {
    if (!std::isfinite(*number)) return false;
    out += nlohmann::json(*number).dump();
  } else if (const std::string* text = value.asText()) {
    return writeText(out, *text);
  } else if (const Dictionary* members = value.asDictionary()) {
    return writeMembers(out, *members);
  } else if (const Array* elements = value.asArray()) {
    char separator = '[';
    for (const Value& element : *elements) {
      out.push_back(std::exchange(separator, ','));
      if (!write(out, element)) return false;
    }
    if (separator == '[') out.push_back('[');
    out.push_back(']');
  } else {
    return false;
  }
  return true;
}

/// Builds a Value from the parser's events. Returning false ends the parse.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  Value take() { return std::move(root_); }
  std::size_t errorPosition() const { return errorPosition_; }
  bool tooDeep() const { return tooDeep_; }
  bool tooLarge() const { return memory_ > kMemoryLimit; }

  bool null() override { return add(Value()); }
  bool boolean(bool value) override { return add(Value(value)); }
  bool number_integer(number_integer_t value) override { return add(Value(std::int64_t{value})); }
  bool number_unsigned(number_unsigned_t value) override {
    constexpr auto kSigned = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return add(value <= kSigned ? Value(static_cast<std::int64_t>(value))
                                : Value(std::uint64_t{value}));
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return add(Value(value));
  }
  bool string(string_t& value) override {
    return charge(value.capacity()) && add(Value(std::move(value)));
  }
  bool binary(binary_t& /*value*/) override { return false; }  // JSON text has no binary values.

  bool start_object(std::size_t /*size*/) override { return open(Level{.isObject = true}); }
  bool key(string_t& value) override {
    levels_.back().key = std::move(value);
    return charge(levels_.back().key.capacity());
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*size*/) override { return open(Level{.isObject = false}); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t position, const std::string& /*lastToken*/,
                   const nlohmann::detail::exception& /*error*/) override {
    errorPosition_ = position;
    return false;
  }

 private:
  /// An array or object that has not been closed yet.
  struct Level {
    bool isObject = false;
    std::string key{};
    Dictionary members{};
    Array elements{};
  };

  /// Counts `bytes` of memory. False when the limit is exceeded.
  bool charge(std::size_t bytes) {
    memory_ += bytes;
    return !tooLarge();
  }
  bool add(Value value) {
    if (levels_.empty()) {
      root_ = std::move(value);
    } else if (!charge(levels_.back().isObject ? kMemberSize : kElementSize)) {
      return false;
    } else if (levels_.back().isObject) {
      levels_.back().members.insert_or_assign(std::move(levels_.back().key), std::move(value));
    } else {
      levels_.back().elements.push_back(std::move(value));
    }
    return true;
  }
  bool open(Level level) {
    tooDeep_ = levels_.size() == kDepthLimit;
    if (tooDeep_) return false;
    levels_.push_back(std::move(level));
    return true;
  }
  bool close() {
    Level level = std::move(levels_.back());
    levels_.pop_back();
    return add(level.isObject ? Value(std::move(level.members)) : Value(std::move(level.elements)));
  }

  /// A node of the map: its content, three links, a colour, and the overhead of the allocator.
  static constexpr std::size_t kMemberSize = sizeof(Dictionary::value_type) + 6 * sizeof(void*);
  /// An array that grows exists twice for a moment, and the second copy has room for as many
  /// elements again.
  static constexpr std::size_t kElementSize = 3 * sizeof(Value);

  Value root_;
  std::vector<Level> levels_;
  std::size_t memory_ = 0;
  std::size_t errorPosition_ = 0;
  bool tooDeep_ = false;
};

}  // namespace

std::optional<std::string> NlohmannJson::encode(const Value& value) {
  std::string out;
  if (!write(out, value)) return std::nullopt;
  return out;
}

std::optional<std::string> NlohmannJson::encode(const OrderedMembers& members) {
  std::string out;
  if (!writeMembers(out, members)) return std::nullopt;
  return out;
}

Result<Value> NlohmannJson::decode(const Data& text) {
  Builder builder;
  const std::string_view json = text.text();
  if (nlohmann::json::sax_parse(json.begin(), json.end(), &builder)) return builder.take();
  if (builder.tooDeep()) return Error{"Json", 2, "JSON nested deeper than 128"};
  if (builder.tooLarge()) return Error{"Json", 3, "JSON whose values take more than 8 MiB"};
  return Error{"Json", 1, "no JSON at byte " + std::to_string(builder.errorPosition())};
}

}  // namespace qx
