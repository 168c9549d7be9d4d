// Keeps secrets out of texts that others wrote: an error record may repeat what it was sent.
//
// Threads: a pure function, callable from any thread.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// Replaces every occurrence of `secret` by "...". Secrets shorter than four bytes stay: texts that
/// short occur by chance.
void leaveOut(std::string& text, std::string_view secret);

}  // namespace qx
