// How numbers, times and names look to a person.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qx::app {

/// "0 B", "1.5 KiB", "2.0 GiB".
std::string bytesText(std::uint64_t bytes);
/// "8 s", "2:05", "1:02:05"; "--" when it cannot be known (negative or beyond 99 hours).
std::string durationText(double seconds);
/// "1 file", "3 files".
std::string countText(std::uint64_t count, std::string_view singular, std::string_view plural);
/// The text with control characters, and those that change the direction of writing, written as
/// "\x1b" or "\u202e": a file name must not steer the terminal or show as another name.
std::string printable(std::string_view text);
/// JSON text with the same characters written as "\u202e", which means the same to a JSON reader.
std::string printableJson(std::string_view json);
/// At most `columns` characters (not bytes), cut with "…".
std::string cut(std::string_view text, std::size_t columns);
/// "2026-11-21T00:30:00Z".
std::string timeText(double secondsSince1970);
/// The last component of a path.
std::string baseName(std::string_view path);

}  // namespace qx::app
