// The tag that this program gives each background upload. By the tag a later run recognises stored
// uploads, and every run finds the file of an event.
//
// The tag is a JSON text with the absolute path of the file and the SHA-256 of its content. The tag
// of an item's image also has the item, its tags, and whether it is a det image.
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

/// The item to which an original image belongs.
struct ImageItem {
  std::int64_t itemId = 0;
  bool det = false;
  std::vector<std::string> tags;
};

/// `item` is null for a file that is no item's image.
std::string uploadTag(Digests& digests, const std::string& file, const Data& content,
                      const ImageItem* item);
/// The path in a tag. Empty when another host has made the tag.
std::string fileOfTag(std::string_view tag);

}  // namespace qx::app
