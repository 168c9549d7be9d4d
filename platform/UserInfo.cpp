#include "platform/UserInfo.h"

#include <cstddef>

#include "platform/Url.h"

namespace qx {

std::string_view userInfoOf(std::string_view address, bool mayHavePath) {
  const AddressParts parts(address);
  address.remove_prefix(address.size() - parts.authority.size() - parts.rest.size());
  std::size_t at = address.rfind('@');
  if (mayHavePath) {
    const std::size_t inAuthority = parts.authority.rfind('@');
    if (inAuthority != std::string_view::npos) at = inAuthority;
  }
  return at == std::string_view::npos ? std::string_view() : address.substr(0, at);
}

std::string withoutUserInfo(std::string_view address, std::string_view mark, bool mayHavePath) {
  const std::string_view secret = userInfoOf(address, mayHavePath);
  std::string shown(address);
  if (!secret.empty()) {
    shown.replace(static_cast<std::size_t>(secret.data() - address.data()), secret.size(), mark);
  }
  return shown;
}

}  // namespace qx
