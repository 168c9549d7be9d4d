#include "platforms/shared/LibplistPropertyLists.h"

#include <locale.h>
#include <plist/plist.h>
#include <time.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Utf8.h"

namespace qx {
namespace {

constexpr std::string_view kStart =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kEnd = "</plist>\n";

constexpr int kDepthLimit = 128;
/// The seconds from 1970-01-01, where our time begins, to 2001-01-01, where that of property lists
/// begins.
constexpr double kPropertyListEpoch = 978307200;

// ---- Writing

/// Appends `text` as XML character data. False when XML cannot hold the text.
bool writeText(std::string& out, std::string_view text) {
  while (!text.empty()) {
    const std::string_view before = text;
    const auto character = takeUtf8Character(text);
    if (!character || *character == 0xFFFE || *character == 0xFFFF) return false;
    switch (*character) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\r':
        out += "&#13;";  // Readers change a bare CR into a line feed.
        break;
      default:
        if (*character < 0x20 && *character != '\t' && *character != '\n') return false;
        out += before.substr(0, before.size() - text.size());
    }
  }
  return true;
}

void writeBase64(std::string& out, std::string_view bytes) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto byteAt = [&](std::size_t at) {
      return at < bytes.size() ? std::uint32_t{static_cast<unsigned char>(bytes[at])} : 0U;
    };
    const std::uint32_t group = (byteAt(i) << 16) | (byteAt(i + 1) << 8) | byteAt(i + 2);
    out.push_back(kDigits[group >> 18]);
    out.push_back(kDigits[(group >> 12) & 0x3F]);
    out.push_back(i + 1 < bytes.size() ? kDigits[(group >> 6) & 0x3F] : '=');
    out.push_back(i + 2 < bytes.size() ? kDigits[group & 0x3F] : '=');
  }
}

void writeReal(std::string& out, double number) {
  if (std::isnan(number)) {
    out += "nan";
  } else if (std::isinf(number)) {
    out += number < 0 ? "-infinity" : "+infinity";
  } else {
    // The fewest digits that are read as the same double.
    std::array<char, 64> digits;
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
    out += text;
    if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
  }
}

/// The date in whole seconds, as the format has them. False outside the years 0 to 9999.
bool writeDate(std::string& out, Date date) {
  const double seconds = std::floor(date.secondsSince1970);
  if (!(seconds >= -62167219200.0 && seconds < 253402300800.0)) return false;
  const auto time = static_cast<time_t>(seconds);
  tm parts{};
  if (::gmtime_r(&time, &parts) == nullptr) return false;
  std::array<char, 96> text;
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  out += text.data();
  return true;
}

bool write(std::string& out, const Value& value, std::size_t depth);

bool writeKey(std::string& out, std::string_view name) {
  out += "<key>";
  if (!writeText(out, name)) return false;
  out += "</key>\n";
  return true;
}

bool writeContainer(std::string& out, const Array& elements, std::size_t depth) {
  if (elements.empty()) {
    out += "<array/>\n";
    return true;
  }
  out += "<array>\n";
  for (const Value& element : elements) {
    if (!write(out, element, depth + 1)) return false;
  }
  out.append(depth, '\t') += "</array>\n";
  return true;
}

bool writeContainer(std::string& out, const Dictionary& members, std::size_t depth) {
  if (members.empty()) {
    out += "<dict/>\n";
    return true;
  }
  out += "<dict>\n";
  for (const auto& [name, value] : members) {
    out.append(depth + 1, '\t');
    if (!writeKey(out, name) || !write(out, value, depth + 1)) return false;
  }
  out.append(depth, '\t') += "</dict>\n";
  return true;
}

bool write(std::string& out, const Value& value, std::size_t depth) {
  if (depth > kDepthLimit) return false;
  out.append(depth, '\t');
  if (const Dictionary* members = value.asDictionary()) return writeContainer(out, *members, depth);
  if (const Array* elements = value.asArray()) return writeContainer(out, *elements, depth);
  if (const bool* flag = value.asBool()) {
    out += *flag ? "<true/>\n" : "<false/>\n";
  } else if (const std::int64_t* integer = value.asInt()) {
    out += "<integer>" + std::to_string(*integer) + "</integer>\n";
  } else if (const std::uint64_t* natural = value.asUInt()) {
    out += "<integer>" + std::to_string(*natural) + "</integer>\n";
  } else if (const double* number = value.asDouble()) {
    out += "<real>";
    writeReal(out, *number);
    out += "</real>\n";
  } else if (const std::string* text = value.asText()) {
    out += "<string>";
    if (!writeText(out, *text)) return false;
    out += "</string>\n";
  } else if (const Data* bytes = value.asData()) {
    out += "<data>";
    writeBase64(out, bytes->text());
    out += "</data>\n";
  } else if (const Date* date = value.asDate()) {
    out += "<date>";
    if (!writeDate(out, *date)) return false;
    out += "</date>\n";
  } else {
    return false;
  }
  return true;
}

// ---- Reading

/// True when the text is nested no deeper than the limit. libplist frees and converts nested nodes
/// by recursion, so that the depth is checked before libplist gets the text. Tags inside comments
/// and CDATA do not count.
bool xmlFits(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return false;  // NUL would end a C string.
  int depth = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const std::string_view rest = text.substr(at);
    const auto skipTo = [&](std::string_view end) {
      const std::size_t found = text.find(end, at);
      at = found == std::string_view::npos ? text.size() : found;
    };
    if (rest.starts_with("<!--")) {
      skipTo("-->");
    } else if (rest.starts_with("<![CDATA[")) {
      skipTo("]]>");
    } else if (rest.starts_with("</")) {
      --depth;
    } else if (!rest.starts_with("<?") && !rest.starts_with("<!")) {
      skipTo(">");
      if (at < text.size() && text[at - 1] != '/' && ++depth > kDepthLimit + 2) return false;
    }
  }
  return true;
}

/// The same check for the binary form, where a container may contain itself or be shared by many
/// containers. It follows the references, to the limit of depth at most, and no more references
/// than the file has bytes.
class BinaryCheck {
 public:
  explicit BinaryCheck(std::string_view bytes) : bytes_(bytes) {}

  bool fits() {
    constexpr std::size_t kTrailer = 32;
    if (bytes_.size() < 8 + kTrailer) return false;
    const std::size_t trailer = bytes_.size() - kTrailer;
    offsetSize_ = byteAt(trailer + 6);
    refSize_ = byteAt(trailer + 7);
    count_ = number(trailer + 8, 8);
    const std::uint64_t top = number(trailer + 16, 8);
    table_ = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) return false;
    if (table_ > trailer || count_ > (trailer - table_) / offsetSize_) return false;
    budget_ = bytes_.size();
    keyBudget_ = 64 * bytes_.size();
    return visit(top, 0);
  }

 private:
  std::uint64_t byteAt(std::uint64_t at) const {
    return static_cast<unsigned char>(bytes_[static_cast<std::size_t>(at)]);
  }
  /// The caller has checked that the bytes exist.
  std::uint64_t number(std::uint64_t at, std::uint64_t size) const {
    std::uint64_t value = 0;
    for (std::uint64_t i = 0; i < size; ++i) value = (value << 8) | byteAt(at + i);
    return value;
  }

  /// The kind of an object, its size and the place of its content. Nothing when these are not
  /// within the objects.
  struct Head {
    std::uint64_t kind = 0;
    std::uint64_t size = 0;
    std::uint64_t content = 0;
  };
  std::optional<Head> headOf(std::uint64_t object) const {
    if (object >= count_) return std::nullopt;
    std::uint64_t at = number(table_ + object * offsetSize_, offsetSize_);
    if (at >= table_) return std::nullopt;
    const std::uint64_t marker = byteAt(at++);
    std::uint64_t size = marker & 0xF;
    if (marker >> 4 != 0 && size == 0xF) {  // An integer object with the size follows.
      if (at >= table_) return std::nullopt;
      const std::uint64_t width = std::uint64_t{1} << (byteAt(at++) & 0xF);
      if (width > 8 || width > table_ - at) return std::nullopt;
      size = number(at, width);
      at += width;
    }
    return Head{.kind = marker >> 4, .size = size, .content = at};
  }

  /// Checks that a text has no NUL, because libplist stops the process when a key has one.
  bool isKey(std::uint64_t object) {
    const auto head = headOf(object);
    if (!head || (head->kind != 0x5 && head->kind != 0x6)) return false;
    const std::uint64_t width = head->kind == 0x5 ? 1 : 2;
    if (head->size > (table_ - head->content) / width || head->size > keyBudget_) return false;
    keyBudget_ -= head->size;
    for (std::uint64_t i = 0; i < head->size; ++i) {
      if (number(head->content + i * width, width) == 0) return false;
    }
    return true;
  }

  bool visit(std::uint64_t object, int depth) {
    if (depth > kDepthLimit || budget_ == 0) return false;
    --budget_;
    const auto head = headOf(object);
    if (!head) return false;
    const bool isDictionary = head->kind == 0xD;
    if (head->kind != 0xA && head->kind != 0xC && !isDictionary) return true;  // A leaf.
    const std::uint64_t perElement = (isDictionary ? 2 : 1) * refSize_;
    if (head->size > (table_ - head->content) / perElement) return false;
    const auto reference = [&](std::uint64_t i) {
      return number(head->content + i * refSize_, refSize_);
    };
    // A dictionary has all its keys before all its values.
    const std::uint64_t keys = isDictionary ? head->size : 0;
    for (std::uint64_t i = 0; i < keys; ++i) {
      if (!isKey(reference(i))) return false;
    }
    for (std::uint64_t i = 0; i < head->size; ++i) {
      if (!visit(reference(keys + i), depth + 1)) return false;
    }
    return true;
  }

  const std::string_view bytes_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t refSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t table_ = 0;
  /// The number of references that may still be followed, and of characters of keys that may still
  /// be read. Many dictionaries may share keys, so the characters may be several times as many as
  /// the file has.
  std::uint64_t budget_ = 0;
  std::uint64_t keyBudget_ = 0;
};

/// Sets the decimal point of the thread's locale to ".", because libplist reads numbers with it.
class CLocale {
 public:
  CLocale() : locale_(::newlocale(LC_ALL_MASK, "C", nullptr)), before_(::uselocale(locale_)) {}
  ~CLocale() {
    ::uselocale(before_);
    if (locale_ != locale_t{}) ::freelocale(locale_);
  }
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;

 private:
  const locale_t locale_;
  const locale_t before_;
};

struct FreeNode {
  void operator()(void* node) const { ::plist_free(node); }
};
using Node = std::unique_ptr<void, FreeNode>;

Node parse(std::string_view bytes) {
  plist_t root = nullptr;
  ::plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
  return Node(root);
}

/// libplist tells -1 from 2^64 - 1 only when it compares two nodes.
bool isNegative(plist_t node, std::int64_t number) {
  const Node negative =
      parse("<plist version=\"1.0\"><integer>" + std::to_string(number) + "</integer></plist>");
  return negative != nullptr && ::plist_compare_node_value(node, negative.get()) != 0;
}

Value converted(plist_t node);

Value integer(plist_t node) {
  std::uint64_t bits = 0;
  ::plist_get_uint_val(node, &bits);
  const auto number = static_cast<std::int64_t>(bits);
  if (number >= 0 || isNegative(node, number)) return number;
  return bits;
}

Value array(plist_t node) {
  Array elements;
  plist_array_iter position = nullptr;
  ::plist_array_new_iter(node, &position);
  const std::unique_ptr<void, decltype(&::free)> owner(position, &::free);
  for (;;) {
    plist_t element = nullptr;
    ::plist_array_next_item(node, position, &element);
    if (element == nullptr) return elements;
    elements.push_back(converted(element));
  }
}

Value dictionary(plist_t node) {
  Dictionary members;
  plist_dict_iter position = nullptr;
  ::plist_dict_new_iter(node, &position);
  const std::unique_ptr<void, decltype(&::free)> owner(position, &::free);
  for (;;) {
    char* key = nullptr;
    plist_t element = nullptr;
    ::plist_dict_next_item(node, position, &key, &element);
    const std::unique_ptr<char, decltype(&::free)> name(key, &::free);
    if (element == nullptr) return members;
    members.insert_or_assign(std::string(key != nullptr ? key : ""), converted(element));
  }
}

/// libplist takes a dictionary whose only entry is the integer "CF$UID" for the reference of an
/// archive, and keeps only the bits of the integer. Null when these bits may stand for two
/// integers.
Value reference(plist_t node) {
  std::uint64_t bits = 0;
  ::plist_get_uid_val(node, &bits);
  if (bits > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return {};
  return Dictionary{{"CF$UID", static_cast<std::int64_t>(bits)}};
}

/// Null for a node that a Value cannot hold.
Value converted(plist_t node) {
  switch (::plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t flag = 0;
      ::plist_get_bool_val(node, &flag);
      return flag != 0;
    }
    case PLIST_UINT:
      return integer(node);
    case PLIST_REAL: {
      double number = 0;
      ::plist_get_real_val(node, &number);
      return number;
    }
    case PLIST_STRING: {
      std::uint64_t size = 0;
      const char* text = ::plist_get_string_ptr(node, &size);
      return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(size));
    }
    case PLIST_DATA: {
      std::uint64_t size = 0;
      const char* bytes = ::plist_get_data_ptr(node, &size);
      return Data(bytes == nullptr ? std::string()
                                   : std::string(bytes, static_cast<std::size_t>(size)));
    }
    case PLIST_DATE: {
      std::int32_t seconds = 0;
      std::int32_t microseconds = 0;
      ::plist_get_date_val(node, &seconds, &microseconds);
      return Date{kPropertyListEpoch + seconds + microseconds * 1e-6};
    }
    case PLIST_UID:
      return reference(node);
    case PLIST_ARRAY:
      return array(node);
    case PLIST_DICT:
      return dictionary(node);
    default:
      return {};
  }
}

}  // namespace

std::string_view LibplistPropertyLists::documentStart() {
  return kStart;
}

std::string_view LibplistPropertyLists::documentEnd() {
  return kEnd;
}

std::optional<std::string> LibplistPropertyLists::element(const Value& value) {
  std::string out;
  if (!write(out, value, 0)) return std::nullopt;
  return out;
}

std::optional<std::string> LibplistPropertyLists::key(std::string_view name) {
  std::string out;
  if (!writeKey(out, name)) return std::nullopt;
  return out;
}

Result<Value> LibplistPropertyLists::decode(const Data& bytes) {
  const std::string_view text = bytes.text();
  const bool binary = text.starts_with("bplist");
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
    return Error{"PropertyLists", 2, "a property list too large to read"};
  }
  if (binary ? !BinaryCheck(text).fits() : !xmlFits(text)) {
    return Error{"PropertyLists", 3, "a property list nested too deep or not whole"};
  }
  const CLocale locale;
  const Node root = parse(text);
  if (root == nullptr) return Error{"PropertyLists", 1, "no property list"};
  return converted(root.get());
}

}  // namespace qx
