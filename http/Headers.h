// Header fields and URLs as HTTP wants them: names that are equal in any case, and nothing that
// would break a line.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Http.h"

namespace qx {

/// "QXAwsUploader/<version>", sent with every request that brings no User-Agent of its own.
std::string libraryUserAgent();

/// Equal but for the case of ASCII letters.
bool equalsIgnoringCase(std::string_view a, std::string_view b);
/// A-Z become a-z.
std::string lowered(std::string_view text);
/// Without the blanks and line ends at both ends.
std::string_view trimmed(std::string_view text);

/// The first field of this name, or none.
std::optional<std::string_view> headerOf(const HTTPHeaders& headers, std::string_view name);
/// Adds a header field, replacing those of the same name.
void setHeader(HTTPHeaders& headers, const std::string& name, std::string value);

/// Scheme, host and port of a URL as it is written: what a connection is made to.
std::string_view originOf(std::string_view url);

/// Why a header field or URL cannot be sent, or nothing: CR, LF and NUL never reach the wire.
std::optional<Error> checkSendable(const std::string& url, const HTTPHeaders& headers);

/// See HttpAnswer::framed. `version` is "HTTP/1.1" and the like, `received` the size of the body.
bool isFramed(const HTTPHeaders& headers, std::string_view version, std::int64_t received);
/// The number of a Content-Length: digits alone, at most 2^63-1.
std::optional<std::int64_t> contentLength(std::string_view text);

}  // namespace qx
