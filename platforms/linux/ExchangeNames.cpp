#include "platforms/shared/ExchangeNames.h"

#include <fcntl.h>

#include <cstdio>

namespace qx {

bool exchangeNames(const std::string& one, const std::string& other) {
  return ::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

}  // namespace qx
