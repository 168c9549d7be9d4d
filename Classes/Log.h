// Log records through the host's logger.
//
// Threads: the functions may be called from any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/Platform.h"

namespace qx {

/// The level of errors and missing parameters.
inline constexpr int kLogError = 5;
/// The level of notes of success.
inline constexpr int kLogNote = 2;

/// Writes a record when the host reports a non-production environment and the logger's threshold
/// admits the level. `source` is an identifier such as "QXAwsUploader/AWSConfigure". The module of
/// the record is the part before the first slash, or "n/a".
void log(const Platform& platform, int level, std::string message, std::string_view source,
         std::string_view function, int line);

/// Writes a record that names the link when `error` says that a file operation has refused to
/// follow a symbolic link. Does nothing for any other error.
void logRefusedLink(const Platform& platform, const Error& error, std::string_view source,
                    std::string_view function, int line);

}  // namespace qx
