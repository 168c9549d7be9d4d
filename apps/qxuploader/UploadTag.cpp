#include "UploadTag.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "Text.h"
#include "platform/Hex.h"

namespace qx::app {
namespace {

using Json = nlohmann::ordered_json;

/// Bytes that are no UTF-8 are written out, because a tag is a text.
std::string absolutePath(const std::string& file) {
  std::error_code code;
  const auto absolute = std::filesystem::absolute(file, code);
  return printable(code ? file : absolute.lexically_normal().string());
}

}  // namespace

std::string uploadTag(Digests& digests, const std::string& file, const Data& content,
                      const ImageItem* item) {
  Json tag = {{"file", absolutePath(file)}, {"sha256", hex(digests.sha256(content.text()))}};
  if (item != nullptr) {
    tag["itemId"] = item->itemId;
    tag["det"] = item->det;
    tag["tags"] = item->tags;
  }
  // The tag is in ASCII, because the stored log cannot hold every character.
  return tag.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::string fileOfTag(std::string_view tag) {
  const Json json = Json::parse(tag, nullptr, false);
  if (!json.is_object()) return {};
  const auto file = json.find("file");
  return file != json.end() && file->is_string() ? file->get<std::string>() : std::string();
}

}  // namespace qx::app
