// Foreign formats: JSON, property lists, image headers, and the SHA-1 digest.
//
// Threads: every operation may be called from any thread; they keep no state.
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
  /// Compact JSON text in UTF-8: no blanks, elements in list order, members by key, "/" written
  /// "\/". Nothing when the value cannot be JSON: bytes, dates, host objects, texts that are not
  /// UTF-8, non-finite numbers.
  virtual std::optional<std::string> encode(const Value& value) = 0;
  /// The same for an object with its members in the given order.
  virtual std::optional<std::string> encode(const OrderedMembers& members) = 0;
  /// Any JSON text in UTF-8. Integers come as signed, beyond that as unsigned 64-bit, beyond that
  /// and with a fraction or exponent as double. Nesting deeper than 128 is refused. The error says
  /// where, never what the text holds.
  virtual Result<Value> decode(const Data& text) = 0;
};

/// Property lists are written piece by piece, so that a writer can keep the pieces that do not
/// change: documentStart, elements, documentEnd make a whole XML property list.
class PropertyLists {
 public:
  virtual ~PropertyLists() = default;
  virtual std::string_view documentStart() = 0;
  virtual std::string_view documentEnd() = 0;
  /// The XML element of a value. Nothing when the value cannot be one: null, host objects, texts
  /// with characters that XML cannot hold or that are not UTF-8.
  virtual std::optional<std::string> element(const Value& value) = 0;
  /// The XML element of a dictionary key; nothing as above.
  virtual std::optional<std::string> key(std::string_view name) = 0;
  /// A property list of any form (XML, binary). Integers come as signed, beyond that as unsigned.
  virtual Result<Value> decode(const Data& bytes) = 0;
};

struct ImageSize {
  /// In pixels, as a viewer shows the image: EXIF orientation applied.
  double width = 0;
  double height = 0;
};

class ImageHeaders {
 public:
  virtual ~ImageHeaders() = default;
  /// The size from the header alone; the pixels are never decoded. Nothing when the bytes are no
  /// image that the decoder knows.
  virtual std::optional<ImageSize> size(const Data& image) = 0;
};

}  // namespace qx
