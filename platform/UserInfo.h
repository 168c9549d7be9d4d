// The name and password in an address, and the address without them, for messages that show it.
//
// Threads: pure functions.
#pragma once

#include <string>
#include <string_view>

namespace qx {

/// The name and password in an address, well-formed or not: what stands in front of the "@" before
/// its host. Empty when there are none. A password may hold "@", "/", "?" and "#" if somebody
/// forgot to encode them; only in an address without a path (a proxy's) it is certain where it
/// ends.
std::string_view userInfoOf(std::string_view address, bool mayHavePath = true);

/// The address, well-formed or not, as it may be shown: `mark` in place of name and password.
std::string withoutUserInfo(std::string_view address, std::string_view mark,
                            bool mayHavePath = true);

}  // namespace qx
