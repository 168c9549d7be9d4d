#include "http/Multipart.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/Hex.h"

namespace qx {
namespace {

/// The name between quotes. Characters that would end the name or the line are percent-encoded, as
/// browsers do it.
std::string quoted(std::string_view name) {
  std::string text = "\"";
  for (const char c : name) {
    switch (c) {
      case '"':
        text += "%22";
        break;
      case '\r':
        text += "%0D";
        break;
      case '\n':
        text += "%0A";
        break;
      case '\0':
        text += "%00";
        break;
      default:
        text += c;
    }
  }
  return text + '"';
}

/// The MIME type without control characters, because it becomes part of a header line.
std::string headerText(std::string_view value) {
  std::string text;
  for (const char c : value) {
    if (static_cast<unsigned char>(c) >= ' ' && c != '\x7f') text += c;
  }
  return text;
}

}  // namespace

MultipartBody makeMultipartBody(const std::vector<MultipartFormData::Part>& parts,
                                const std::string& boundary) {
  MultipartBody body;
  body.contentType = "multipart/form-data; boundary=" + boundary;
  std::string between;
  for (const MultipartFormData::Part& part : parts) {
    between += "--" + boundary + "\r\nContent-Disposition: form-data; name=" + quoted(part.name);
    if (part.fileName) between += "; filename=" + quoted(*part.fileName);
    between += "\r\n";
    if (part.mimeType) between += "Content-Type: " + headerText(*part.mimeType) + "\r\n";
    between += "\r\n";
    body.pieces.emplace_back(std::move(between));
    body.pieces.push_back(part.data);
    between = "\r\n";
  }
  between += "--" + boundary + "--\r\n";
  body.pieces.emplace_back(std::move(between));
  return body;
}

std::string makeBoundary(Random& random) {
  std::array<std::byte, 16> bytes{};
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    const std::uint32_t drawn = random.next();
    for (std::size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<std::byte>(drawn >> (8 * j));
  }
  return "qx-" + hex(bytes);
}

}  // namespace qx
