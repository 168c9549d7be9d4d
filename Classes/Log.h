// Log records through the host's logger.
//
// Threads: any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/Platform.h"

namespace qx {

/// Errors and missing parameters.
inline constexpr int kLogError = 5;
/// Success notes.
inline constexpr int kLogNote = 2;

/// Writes a record when the host reports a non-production environment and the logger's threshold
/// admits the level. `source` is the identifier "QXAwsUploader/AWSConfigure"; the module is what
/// stands before its first slash, or "n/a".
void log(const Platform& platform, int level, std::string message, std::string_view source,
         std::string_view function, int line);

/// Writes a record that names the link when `error` says that a file operation has refused to
/// follow a symbolic link; else nothing.
void logRefusedLink(const Platform& platform, const Error& error, std::string_view source,
                    std::string_view function, int line);

}  // namespace qx
