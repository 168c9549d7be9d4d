#include "platform/Error.h"

#include <cstdio>
#include <cstdlib>

namespace qx {

void fatal(std::string_view message) {
  std::fprintf(stderr, "QXAwsUploader: fatal: %.*s\n", static_cast<int>(message.size()),
               message.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace qx
