#include "http/Multipart.h"

#include <openssl/rand.h>

#include <array>
#include <string_view>

#include "platform/Error.h"

namespace qx {
namespace {

/// A name between quotes: what would end it or the line is percent-encoded, as browsers do.
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

/// A MIME type stands in a header line as it is; control characters have no place in one.
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

std::string makeBoundary() {
  std::array<unsigned char, 16> random{};
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
    fatal("OpenSSL has no randomness");
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string boundary = "qx-";
  for (const unsigned char byte : random) {
    boundary += kDigits[byte >> 4];
    boundary += kDigits[byte & 15];
  }
  return boundary;
}

}  // namespace qx
