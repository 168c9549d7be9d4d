// Numbers, times and names in a form for people.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qx::app {

/// A size such as "0 B", "1.5 KiB" or "2.0 GiB".
std::string bytesText(std::uint64_t bytes);
/// A duration such as "8 s", "2:05" or "1:02:05"; "--" when it is unknown (negative or beyond 99
/// hours).
std::string durationText(double seconds);
/// A count such as "1 file" or "3 files".
std::string countText(std::uint64_t count, std::string_view singular, std::string_view plural);
/// The text with control characters, and characters that change the direction of writing, written
/// as "\x1b" or "\u202e". A file name must neither steer the terminal nor look like another name.
std::string printable(std::string_view text);
/// JSON text with the same characters written as "\u202e", which means the same to a JSON reader.
std::string printableJson(std::string_view json);
/// At most `columns` characters (not bytes); a longer text is truncated with "…".
std::string cut(std::string_view text, std::size_t columns);
/// A time such as "2026-11-21T00:30:00Z".
std::string timeText(double secondsSince1970);
/// The last component of a path.
std::string baseName(std::string_view path);

}  // namespace qx::app
