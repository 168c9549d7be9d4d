#include "http/UriEncoding.h"

namespace qx {
namespace {

bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

std::string encode(std::string_view text, bool keepSlash) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (isUnreserved(c) || (keepSlash && c == '/')) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += kDigits[byte >> 4];
    encoded += kDigits[byte & 15];
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
