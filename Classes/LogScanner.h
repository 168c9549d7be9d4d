// Finds the entries of a stored log that still stand whole in a damaged file.
//
// Threads: plain functions and values.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace qx {

struct ScannedLog {
  /// The text looks like an XML property list, whatever its state.
  bool xml = false;
  /// Nothing but whole entries stands between the root dictionary's tags.
  bool whole = false;
  /// The texts of the whole entries, key and dictionary, in order; they refer to the scanned text.
  std::vector<std::string_view> entries;
  /// How many entries there seem to have been, damaged ones included.
  std::size_t marks = 0;
};

/// Any text. An entry is whole when its tags are: a key, then a dictionary of dictionaries of
/// scalars. What the values say is not looked at.
ScannedLog scanLog(std::string_view text);

}  // namespace qx
