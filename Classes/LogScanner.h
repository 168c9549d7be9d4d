// Finds the entries that are still whole in a damaged stored log.
//
// Threads: plain functions and values.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace qx {

struct ScannedLog {
  /// True when the text looks like an XML property list, damaged or not.
  bool xml = false;
  /// True when nothing but whole entries stands between the root dictionary's tags.
  bool whole = false;
  /// The texts of the whole entries (key and dictionary) in order. They refer to the scanned text.
  std::vector<std::string_view> entries;
  /// The probable number of entries, including damaged ones.
  std::size_t marks = 0;
};

/// Scans any text. An entry is whole when its tags are whole: a key, then a dictionary of
/// dictionaries of scalars. Its values are not checked.
ScannedLog scanLog(std::string_view text);

}  // namespace qx
