#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <system_error>

#include "fakes/SimpleFormats.h"
#include "platform/Utf8.h"

namespace qx {
namespace {

constexpr std::string_view kStart =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kEnd = "</plist>\n";

std::optional<std::string> escaped(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::string_view before = text;
    const auto c = takeUtf8Character(text);
    if (!c || *c == 0xFFFE || *c == 0xFFFF) return std::nullopt;
    if (*c < 0x20 && *c != '\t' && *c != '\n' && *c != '\r') return std::nullopt;
    if (*c == '&') {
      out += "&amp;";
    } else if (*c == '<') {
      out += "&lt;";
    } else if (*c == '>') {
      out += "&gt;";
    } else if (*c == '\r') {
      out += "&#13;";
    } else {
      out += before.substr(0, before.size() - text.size());
    }
  }
  return out;
}

std::string wrapped(std::string_view tag, std::string_view content) {
  std::string out = "<";
  out += tag;
  out += ">";
  out += content;
  out += "</";
  out += tag;
  out += ">\n";
  return out;
}

constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64(std::string_view bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = (group << 8) | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      out.push_back(i + j > bytes.size() ? '=' : kBase64[(group >> (18 - 6 * j)) & 0x3F]);
    }
  }
  return out;
}

std::string fromBase64(std::string_view text) {
  std::string out;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const std::size_t digit = kBase64.find(c);
    if (digit == std::string_view::npos) continue;
    bits = (bits << 6) | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out.push_back(static_cast<char>((bits >> count) & 0xFF));
    }
  }
  return out;
}

// Days since 1970-01-01 of a date of the Gregorian calendar, and back (the usual civil-calendar
// arithmetic on eras of 400 years).
std::int64_t daysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

std::string dateText(std::int64_t seconds) {
  const std::int64_t days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
  const std::int64_t rest = seconds - days * 86400;
  const std::int64_t z = days + 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t dayOfEra = z - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shifted = (5 * dayOfYear + 2) / 153;
  const std::int64_t day = dayOfYear - (153 * shifted + 2) / 5 + 1;
  const std::int64_t month = shifted + (shifted < 10 ? 3 : -9);
  const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
  char text[160];
  std::snprintf(text, sizeof text, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lldZ",
                static_cast<long long>(year), static_cast<long long>(month),
                static_cast<long long>(day), static_cast<long long>(rest / 3600),
                static_cast<long long>(rest / 60 % 60), static_cast<long long>(rest % 60));
  return text;
}

std::optional<Date> parsedDate(const std::string& text) {
  long long year = 0;
  long long month = 0;
  long long day = 0;
  long long hour = 0;
  long long minute = 0;
  long long second = 0;
  if (std::sscanf(text.c_str(), "%lld-%lld-%lldT%lld:%lld:%lldZ", &year, &month, &day, &hour,
                  &minute, &second) != 6) {
    return std::nullopt;
  }
  return Date{static_cast<double>(daysFromCivil(year, month, day) * 86400 + hour * 3600 +
                                  minute * 60 + second)};
}

std::optional<std::string> realText(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
  char digits[64];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  std::string text(digits, end);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::optional<std::string> write(const Value& value) {
  if (const bool* flag = value.asBool()) return *flag ? "<true/>\n" : "<false/>\n";
  if (const std::int64_t* i = value.asInt()) return wrapped("integer", std::to_string(*i));
  if (const std::uint64_t* u = value.asUInt()) return wrapped("integer", std::to_string(*u));
  if (const double* d = value.asDouble()) return wrapped("real", *realText(*d));
  if (const Data* data = value.asData()) return wrapped("data", base64(data->text()));
  if (const Date* date = value.asDate()) {
    return wrapped("date", dateText(static_cast<std::int64_t>(std::floor(date->secondsSince1970))));
  }
  if (const std::string* text = value.asText()) {
    const auto content = escaped(*text);
    if (!content) return std::nullopt;
    return wrapped("string", *content);
  }
  std::string content;
  if (const Array* elements = value.asArray()) {
    for (const Value& each : *elements) {
      const auto element = write(each);
      if (!element) return std::nullopt;
      content += *element;
    }
    return wrapped("array", content);
  }
  if (const Dictionary* members = value.asDictionary()) {
    for (const auto& [name, each] : *members) {
      const auto key = escaped(name);
      const auto element = write(each);
      if (!key || !element) return std::nullopt;
      content += wrapped("key", *key) + *element;
    }
    return wrapped("dict", content);
  }
  return std::nullopt;
}

/// Reads the XML form: elements without attributes, entities, comments between elements.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  std::optional<Value> document() {
    if (!isUtf8(rest_)) return std::nullopt;
    skip();
    if (!rest_.starts_with("<plist")) return std::nullopt;
    const std::size_t close = rest_.find('>');
    if (close == std::string_view::npos) return std::nullopt;
    rest_.remove_prefix(close + 1);
    auto value = read(0);
    skip();
    if (!value || !take("</plist>")) return std::nullopt;
    skip();
    return rest_.empty() ? value : std::nullopt;
  }

 private:
  /// Skips blanks, the XML declaration, the document type and comments.
  void skip() {
    for (;;) {
      rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
      const std::string_view end = rest_.starts_with("<!--") ? "-->"
                                   : rest_.starts_with("<?") || rest_.starts_with("<!")
                                       ? ">"
                                       : std::string_view();
      if (end.empty()) return;
      const std::size_t at = rest_.find(end);
      rest_.remove_prefix(at == std::string_view::npos ? rest_.size() : at + end.size());
    }
  }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  /// The text of `<tag>text</tag>`. Yields nothing and reads nothing when another element comes.
  std::optional<std::string> textOf(std::string_view tag) {
    const std::string name(tag);
    if (take("<" + name + "/>")) return std::string();
    if (!rest_.starts_with("<" + name + ">")) return std::nullopt;
    const std::size_t begin = name.size() + 2;
    const std::size_t end = rest_.find('<', begin);
    if (end == std::string_view::npos || !rest_.substr(end).starts_with("</" + name + ">")) {
      return std::nullopt;
    }
    auto text = unescaped(rest_.substr(begin, end - begin));
    if (text) rest_.remove_prefix(end + name.size() + 3);
    return text;
  }
  static std::optional<std::string> unescaped(std::string_view raw) {
    std::string text;
    while (!raw.empty()) {
      if (raw.front() != '&') {
        text.push_back(raw.front());
        raw.remove_prefix(1);
        continue;
      }
      const std::size_t end = raw.find(';');
      if (end == std::string_view::npos) return std::nullopt;
      const std::string_view name = raw.substr(1, end - 1);
      raw.remove_prefix(end + 1);
      if (name == "amp") {
        text.push_back('&');
      } else if (name == "lt") {
        text.push_back('<');
      } else if (name == "gt") {
        text.push_back('>');
      } else if (name == "quot") {
        text.push_back('"');
      } else if (name == "apos") {
        text.push_back('\'');
      } else if (name == "#13") {
        text.push_back('\r');
      } else {
        return std::nullopt;
      }
    }
    return text;
  }

  std::optional<Value> read(int depth) {
    skip();
    if (depth > 128) return std::nullopt;
    if (take("<true/>")) return Value(true);
    if (take("<false/>")) return Value(false);
    if (auto text = textOf("string")) return Value(*std::move(text));
    if (auto text = textOf("data")) return Value(Data(fromBase64(*text)));
    if (auto text = textOf("integer")) return integer(*text);
    if (auto text = textOf("real")) return real(*text);
    if (auto text = textOf("date")) {
      const auto date = parsedDate(*text);
      return date ? std::optional<Value>(*date) : std::nullopt;
    }
    if (take("<array/>")) return Value(Array());
    if (take("<array>")) return array(depth + 1);
    if (take("<dict/>")) return Value(Dictionary());
    if (take("<dict>")) return dictionary(depth + 1);
    return std::nullopt;
  }
  static std::optional<Value> integer(const std::string& text) {
    const char* const last = text.data() + text.size();
    std::int64_t i = 0;
    auto parsed = std::from_chars(text.data(), last, i);
    if (parsed.ec == std::errc() && parsed.ptr == last) return Value(i);
    std::uint64_t u = 0;
    parsed = std::from_chars(text.data(), last, u);
    if (parsed.ec == std::errc() && parsed.ptr == last) return Value(u);
    return std::nullopt;
  }
  static std::optional<Value> real(const std::string& text) {
    const char* const last = text.data() + text.size();
    double number = 0;
    const auto parsed = std::from_chars(text.data(), last, number);
    if (parsed.ec != std::errc() || parsed.ptr != last) return std::nullopt;
    return Value(number);
  }
  std::optional<Value> array(int depth) {
    Array elements;
    for (;;) {
      skip();
      if (take("</array>")) return Value(std::move(elements));
      auto element = read(depth);
      if (!element) return std::nullopt;
      elements.push_back(*std::move(element));
    }
  }
  std::optional<Value> dictionary(int depth) {
    Dictionary members;
    for (;;) {
      skip();
      if (take("</dict>")) return Value(std::move(members));
      auto name = textOf("key");
      auto element = name ? read(depth) : std::nullopt;
      if (!element) return std::nullopt;
      members.insert_or_assign(*std::move(name), *std::move(element));
    }
  }

  std::string_view rest_;
};

}  // namespace

std::string_view SimplePropertyLists::documentStart() {
  return kStart;
}

std::string_view SimplePropertyLists::documentEnd() {
  return kEnd;
}

std::optional<std::string> SimplePropertyLists::element(const Value& value) {
  return write(value);
}

std::optional<std::string> SimplePropertyLists::key(std::string_view name) {
  const auto text = escaped(name);
  if (!text) return std::nullopt;
  return wrapped("key", *text);
}

Result<Value> SimplePropertyLists::decode(const Data& bytes) {
  auto value = Reader(bytes.text()).document();
  if (!value) return Error{"PropertyLists", 1, "no property list"};
  return *std::move(value);
}

}  // namespace qx
