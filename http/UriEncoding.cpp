#include "http/UriEncoding.h"

#include <cstddef>

#include "platform/Hex.h"

namespace qx {
namespace {

bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

std::string encode(std::string_view text, bool keepSlash) {
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (isUnreserved(c) || (keepSlash && c == '/')) {
      encoded += c;
      continue;
    }
    encoded += '%';
    appendHex(encoded, static_cast<std::byte>(c), kUpperHex);
  }
  return encoded;
}

}  // namespace

std::string percentEncode(std::string_view text) {
  return encode(text, false);
}

std::string percentEncodePath(std::string_view path) {
  return encode(path, true);
}

}  // namespace qx
