#include "platforms/shared/ExchangeNames.h"

#include <fcntl.h>

#include <cstdio>

namespace qx {

bool exchangeNames(int directory, const std::string& one, const std::string& other) {
  return ::renameat2(directory, one.c_str(), directory, other.c_str(), RENAME_EXCHANGE) == 0;
}

}  // namespace qx
