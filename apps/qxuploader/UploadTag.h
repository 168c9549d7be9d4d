// The tag that this program gives each background upload: by it a later run recognises what is
// stored already, and every run finds the file that an event is about.
//
// It is a JSON text with the file's absolute path and the SHA-256 of its content; that of an item's
// image also has the item, its tags, and whether it is a det image.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Data.h"
#include "platform/Digests.h"

namespace qx::app {

/// The item whose original image a file is.
struct ImageItem {
  std::int64_t itemId = 0;
  bool det = false;
  std::vector<std::string> tags;
};

/// `item` is null for a file that is no item's image.
std::string uploadTag(Digests& digests, const std::string& file, const Data& content,
                      const ImageItem* item);
/// The path in a tag; empty when another host made the tag.
std::string fileOfTag(std::string_view tag);

}  // namespace qx::app
