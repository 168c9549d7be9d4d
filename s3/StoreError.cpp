#include "s3/StoreError.h"

#include <charconv>
#include <cstdint>
#include <optional>

#include "http/Redaction.h"
#include "platform/Utf8.h"

namespace qx {
namespace {

constexpr std::size_t kMostXml = 64 << 10;
constexpr std::size_t kMostText = 512;

void appendUtf8(std::string& text, std::uint32_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xc0 | (c >> 6));
    text += static_cast<char>(0x80 | (c & 0x3f));
  } else if (c < 0x10000) {
    text += static_cast<char>(0xe0 | (c >> 12));
    text += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
    text += static_cast<char>(0x80 | (c & 0x3f));
  } else {
    text += static_cast<char>(0xf0 | (c >> 18));
    text += static_cast<char>(0x80 | ((c >> 12) & 0x3f));
    text += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
    text += static_cast<char>(0x80 | (c & 0x3f));
  }
}

/// The character that the entity "lt", "#65" or "#x41" stands for. Nothing for any other entity.
std::optional<std::uint32_t> entity(std::string_view name) {
  if (name == "lt") return '<';
  if (name == "gt") return '>';
  if (name == "amp") return '&';
  if (name == "quot") return '"';
  if (name == "apos") return '\'';
  if (!name.starts_with('#')) return std::nullopt;
  name.remove_prefix(1);
  const int base = name.starts_with('x') ? 16 : 10;
  if (base == 16) name.remove_prefix(1);
  std::uint32_t c = 0;
  const auto read = std::from_chars(name.data(), name.data() + name.size(), c, base);
  if (read.ec != std::errc() || read.ptr != name.data() + name.size()) return std::nullopt;
  if (c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff)) return std::nullopt;
  return c;
}

std::string resolved(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    if (text.front() == '&') {
      const std::size_t end = text.substr(0, 12).find(';');
      const auto c = end == std::string_view::npos ? std::nullopt : entity(text.substr(1, end - 1));
      if (c) {
        appendUtf8(plain, *c);
        text.remove_prefix(end + 1);
        continue;
      }
    }
    plain += text.front();
    text.remove_prefix(1);
  }
  return plain;
}

/// The text as one line of valid UTF-8.
std::string printable(std::string_view text) {
  std::string line;
  while (!text.empty()) {
    const std::string_view before = text;
    const auto character = takeUtf8Character(text);
    if (!character) text.remove_prefix(1);
    std::string_view shown = before.substr(0, before.size() - text.size());
    if (!character) {
      shown = "?";
    } else if (*character < ' ' || *character == 0x7f) {
      shown = " ";
    }
    if (line.size() + shown.size() > kMostText) break;
    line += shown;
  }
  return line;
}

std::int64_t codeOf(int status) {
  const int family = status / 100;
  return family >= 3 && family <= 5 ? family - 2 : 0;
}

/// The element's text as the store wrote it, with its entities resolved.
std::string elementText(std::string_view xml, std::string_view name) {
  xml = xml.substr(0, kMostXml);
  const std::string open = "<" + std::string(name) + ">";
  const std::size_t start = xml.find(open);
  if (start == std::string_view::npos) return {};
  xml.remove_prefix(start + open.size());
  const std::size_t end = xml.find('<');
  if (end == std::string_view::npos) return {};
  if (!xml.substr(end).starts_with("</" + std::string(name) + ">")) return {};
  return resolved(xml.substr(0, end));
}

}  // namespace

std::string xmlElementText(std::string_view xml, std::string_view name) {
  return printable(elementText(xml, name));
}

Error storeError(const HttpAnswer& answer, const std::vector<std::string_view>& secrets) {
  // Secrets are removed before the text is truncated, so that no part of a secret stays at its end.
  const auto cleaned = [&secrets](std::string_view text) {
    return printable(SecretsInForce::leftOutOf(text, secrets));
  };
  const std::string code = cleaned(elementText(answer.body, "Code"));
  const std::string message = cleaned(elementText(answer.body, "Message"));
  std::string requestId = cleaned(elementText(answer.body, "RequestId"));
  if (requestId.empty()) {
    requestId = cleaned(answer.header("x-amz-request-id").value_or(std::string_view()));
  }
  const std::string status = "HTTP " + std::to_string(answer.status);
  const std::string id = requestId.empty() ? "" : "request id " + requestId;
  std::string said = code;
  if (!message.empty()) said += (said.empty() ? "" : ": ") + message;
  std::string description;
  if (said.empty()) {
    description = id.empty() ? status : status + " (" + id + ")";
  } else {
    description = said + " (" + status + (id.empty() ? "" : ", " + id) + ")";
  }
  return {"ObjectStore", codeOf(answer.status), std::move(description)};
}

}  // namespace qx
