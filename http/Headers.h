// Header fields and URLs by the rules of HTTP: the names of fields are compared without regard to
// case, and nothing that would break a line is sent.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Http.h"

namespace qx {

/// "QXAwsUploader/<version>". It is sent with every request that has no User-Agent of its own.
std::string libraryUserAgent();

/// True when both texts are equal but for the case of ASCII letters.
bool equalsIgnoringCase(std::string_view a, std::string_view b);
/// The text with a-z in place of A-Z.
std::string lowered(std::string_view text);
/// The text without the blanks and line ends at both ends.
std::string_view trimmed(std::string_view text);

/// The value of the first field of this name, or nothing.
std::optional<std::string_view> headerOf(const HTTPHeaders& headers, std::string_view name);
/// Adds a header field in place of all fields of the same name.
void setHeader(HTTPHeaders& headers, const std::string& name, std::string value);

/// The scheme, host and port of a URL, as they are written there. They say which connection a
/// request needs.
std::string_view originOf(std::string_view url);

/// The reason why a header field or the URL cannot be sent, or nothing. A URL with a blank or
/// control character, or a field with CR, LF or NUL, is never sent.
std::optional<Error> checkSendable(const std::string& url, const HTTPHeaders& headers);

/// Computes HttpAnswer::framed. `version` is a text such as "HTTP/1.1", `received` the size of the
/// body.
bool isFramed(const HTTPHeaders& headers, std::string_view version, std::int64_t received);
/// The number in a Content-Length field: digits alone, at most 2^63-1. Nothing for any other text.
std::optional<std::int64_t> contentLength(std::string_view text);

}  // namespace qx
