// Foreign formats: JSON, property lists and image headers.
//
//     json.encode(OrderedMembers{{"id", 7}, {"name", "a"}});  // {"id":7,"name":"a"}
//     propertyLists.element(Value("a < b"));                   // <string>a &lt; b</string>
//     imageHeaders.size(photo)->width;                         // 4032
//
// Threads: every operation may be called from any thread and keeps no state.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Value.h"

namespace qx {

/// The members of a JSON object in the order in which they are to be written.
using OrderedMembers = std::vector<std::pair<std::string, Value>>;

class Json {
 public:
  virtual ~Json() = default;
  /// Compact JSON text in UTF-8: without blanks, members sorted by key, "/" written as "\/".
  /// Nothing when JSON cannot hold the value: bytes, dates, host objects, texts that are not UTF-8,
  /// numbers that are not finite.
  virtual std::optional<std::string> encode(const Value& value) = 0;
  /// The same for an object whose members keep the given order.
  virtual std::optional<std::string> encode(const OrderedMembers& members) = 0;
  /// Reads any JSON text in UTF-8. An integer becomes a signed 64-bit integer, or an unsigned one
  /// if it fits only there. A number beyond that, or with a fraction or exponent, becomes a double.
  /// Nesting deeper than 128 is refused. An error names a place in the text, never its content.
  virtual Result<Value> decode(const Data& text) = 0;
};

/// Property lists are written piece by piece, so that a writer can keep the pieces that do not
/// change. The text of documentStart(), one element and the text of documentEnd() are a whole XML
/// property list.
class PropertyLists {
 public:
  virtual ~PropertyLists() = default;
  virtual std::string_view documentStart() = 0;
  virtual std::string_view documentEnd() = 0;
  /// The XML element of a value. Nothing when a property list cannot hold the value: null, host
  /// objects, texts that are not UTF-8 or have characters that XML cannot hold.
  virtual std::optional<std::string> element(const Value& value) = 0;
  /// The XML element of a dictionary key. Nothing when XML cannot hold the text.
  virtual std::optional<std::string> key(std::string_view name) = 0;
  /// Reads a property list of any form (XML, binary). An integer becomes a signed one, or an
  /// unsigned one if it fits only there.
  virtual Result<Value> decode(const Data& bytes) = 0;
};

struct ImageSize {
  /// Pixels as a viewer shows the image, with the EXIF orientation applied.
  double width = 0;
  double height = 0;
};

class ImageHeaders {
 public:
  virtual ~ImageHeaders() = default;
  /// Reads the size from the header alone; the pixels are never decoded. Nothing when the bytes are
  /// no image of a known format.
  virtual std::optional<ImageSize> size(const Data& image) = 0;
};

}  // namespace qx
