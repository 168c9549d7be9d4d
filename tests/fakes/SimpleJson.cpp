#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <system_error>

#include "fakes/SimpleFormats.h"
#include "platform/Utf8.h"

namespace qx {
namespace {

void appendUtf8(std::string& out, std::uint32_t character) {
  const auto put = [&](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (character < 0x80) {
    put(character);
    return;
  }
  if (character < 0x800) {
    put(0xC0 | (character >> 6));
  } else {
    if (character < 0x10000) {
      put(0xE0 | (character >> 12));
    } else {
      put(0xF0 | (character >> 18));
      put(0x80 | ((character >> 12) & 0x3F));
    }
    put(0x80 | ((character >> 6) & 0x3F));
  }
  put(0x80 | (character & 0x3F));
}

bool writeText(std::string& out, std::string_view text) {
  if (!isUtf8(text)) return false;
  out.push_back('"');
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '/':
        out += "\\/";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
          out += escape;
        } else {
          out.push_back(c);
        }
    }
  }
  out.push_back('"');
  return true;
}

bool write(std::string& out, const Value& value);

template <typename Members>
bool writeMembers(std::string& out, const Members& members) {
  out.push_back('{');
  bool first = true;
  for (const auto& [name, value] : members) {
    if (!first) out.push_back(',');
    first = false;
    if (!writeText(out, name)) return false;
    out.push_back(':');
    if (!write(out, value)) return false;
  }
  out.push_back('}');
  return true;
}

bool writeDouble(std::string& out, double number) {
  if (!std::isfinite(number)) return false;
  char digits[64];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  const std::string_view text(digits, static_cast<std::size_t>(end - digits));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
  return true;
}

bool write(std::string& out, const Value& value) {
  if (value.isNull()) {
    out += "null";
  } else if (const bool* flag = value.asBool()) {
    out += *flag ? "true" : "false";
  } else if (const std::int64_t* i = value.asInt()) {
    out += std::to_string(*i);
  } else if (const std::uint64_t* u = value.asUInt()) {
    out += std::to_string(*u);
  } else if (const double* number = value.asDouble()) {
    return writeDouble(out, *number);
  } else if (const std::string* text = value.asText()) {
    return writeText(out, *text);
  } else if (const Dictionary* members = value.asDictionary()) {
    return writeMembers(out, *members);
  } else if (const Array* elements = value.asArray()) {
    out.push_back('[');
    bool first = true;
    for (const Value& element : *elements) {
      if (!first) out.push_back(',');
      first = false;
      if (!write(out, element)) return false;
    }
    out.push_back(']');
  } else {
    return false;
  }
  return true;
}

/// Reads one JSON text. `rest` is the part that has not been read.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text), size_(text.size()) {}

  Result<Value> document() {
    std::optional<Value> value = read(0);
    skipBlanks();
    if (!value || !rest_.empty()) {
      return Error{"Json", 1, "no JSON at byte " + std::to_string(size_ - rest_.size())};
    }
    return *std::move(value);
  }

 private:
  void skipBlanks() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
  }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }

  std::optional<Value> read(int depth) {
    skipBlanks();
    if (take("null")) return Value();
    if (take("true")) return Value(true);
    if (take("false")) return Value(false);
    if (rest_.starts_with('"')) {
      std::optional<std::string> text = readText();
      if (!text) return std::nullopt;
      return Value(*std::move(text));
    }
    if (depth == 128) return std::nullopt;
    if (take("[")) return readArray(depth + 1);
    if (take("{")) return readObject(depth + 1);
    return readNumber();
  }

  std::optional<Value> readArray(int depth) {
    Array elements;
    skipBlanks();
    if (take("]")) return Value(std::move(elements));
    for (;;) {
      std::optional<Value> element = read(depth);
      if (!element) return std::nullopt;
      elements.push_back(*std::move(element));
      skipBlanks();
      if (take("]")) return Value(std::move(elements));
      if (!take(",")) return std::nullopt;
    }
  }

  std::optional<Value> readObject(int depth) {
    Dictionary members;
    skipBlanks();
    if (take("}")) return Value(std::move(members));
    for (;;) {
      skipBlanks();
      std::optional<std::string> name = readText();
      skipBlanks();
      if (!name || !take(":")) return std::nullopt;
      std::optional<Value> value = read(depth);
      if (!value) return std::nullopt;
      members.insert_or_assign(*std::move(name), *std::move(value));
      skipBlanks();
      if (take("}")) return Value(std::move(members));
      if (!take(",")) return std::nullopt;
    }
  }

  std::optional<std::uint32_t> readHex() {
    std::uint32_t unit = 0;
    if (rest_.size() < 4) return std::nullopt;
    const auto end = std::from_chars(rest_.data(), rest_.data() + 4, unit, 16).ptr;
    if (end != rest_.data() + 4) return std::nullopt;
    rest_.remove_prefix(4);
    return unit;
  }

  bool readEscape(std::string& text) {
    constexpr std::string_view names = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (rest_.empty()) return false;
    const char name = rest_.front();
    rest_.remove_prefix(1);
    if (const std::size_t at = names.find(name); at != std::string_view::npos) {
      text.push_back(meanings[at]);
      return true;
    }
    std::optional<std::uint32_t> unit = name == 'u' ? readHex() : std::nullopt;
    if (!unit || (*unit >= 0xDC00 && *unit <= 0xDFFF)) return false;
    if (*unit >= 0xD800 && *unit <= 0xDBFF) {
      const auto low = take("\\u") ? readHex() : std::nullopt;
      if (!low || *low < 0xDC00 || *low > 0xDFFF) return false;
      unit = 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
    }
    appendUtf8(text, *unit);
    return true;
  }

  std::optional<std::string> readText() {
    if (!take("\"")) return std::nullopt;
    std::string text;
    while (!rest_.empty()) {
      if (take("\"")) return text;
      if (take("\\")) {
        if (!readEscape(text)) return std::nullopt;
        continue;
      }
      const std::string_view before = rest_;
      const auto character = takeUtf8Character(rest_);
      if (!character || *character < 0x20) return std::nullopt;
      text += before.substr(0, before.size() - rest_.size());
    }
    return std::nullopt;
  }

  std::size_t digitsAt(std::size_t at) const {
    std::size_t count = 0;
    while (at + count < rest_.size() && rest_[at + count] >= '0' && rest_[at + count] <= '9') {
      ++count;
    }
    return count;
  }

  std::optional<Value> readNumber() {
    std::size_t at = rest_.starts_with('-') ? 1 : 0;
    const std::size_t whole = digitsAt(at);
    if (whole == 0 || (whole > 1 && rest_[at] == '0')) return std::nullopt;
    at += whole;
    bool integral = true;
    if (at < rest_.size() && rest_[at] == '.') {
      integral = false;
      const std::size_t fraction = digitsAt(at + 1);
      if (fraction == 0) return std::nullopt;
      at += 1 + fraction;
    }
    if (at < rest_.size() && (rest_[at] == 'e' || rest_[at] == 'E')) {
      integral = false;
      ++at;
      if (at < rest_.size() && (rest_[at] == '+' || rest_[at] == '-')) ++at;
      const std::size_t exponent = digitsAt(at);
      if (exponent == 0) return std::nullopt;
      at += exponent;
    }
    const char* const first = rest_.data();
    const char* const last = first + at;
    rest_.remove_prefix(at);
    if (integral) {
      std::int64_t i = 0;
      if (std::from_chars(first, last, i).ec == std::errc()) return Value(i);
      std::uint64_t u = 0;
      if (*first != '-' && std::from_chars(first, last, u).ec == std::errc()) return Value(u);
    }
    double number = 0;
    if (std::from_chars(first, last, number).ec != std::errc()) return std::nullopt;
    return Value(number);
  }

  std::string_view rest_;
  std::size_t size_;
};

}  // namespace

std::optional<std::string> SimpleJson::encode(const Value& value) {
  std::string out;
  if (!write(out, value)) return std::nullopt;
  return out;
}

std::optional<std::string> SimpleJson::encode(const OrderedMembers& members) {
  std::string out;
  if (!writeMembers(out, members)) return std::nullopt;
  return out;
}

Result<Value> SimpleJson::decode(const Data& text) {
  return Reader(text.text()).document();
}

}  // namespace qx
