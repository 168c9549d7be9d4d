#include "platform/Platform.h"

#include <atomic>

#include "platform/Error.h"

namespace qx {
namespace {

std::atomic<const Platform*> installed = nullptr;

}  // namespace

void Platform::install(const Platform& platform) {
  // The platform is never freed, because the shared instances and their threads use it until the
  // process ends.
  const Platform* none = nullptr;
  if (!installed.compare_exchange_strong(none, new Platform(platform))) {
    fatal("a platform is already installed");
  }
}

const Platform& Platform::current() {
  const Platform* platform = installed.load(std::memory_order_acquire);
  if (platform == nullptr) fatal("no platform installed; call Platform::install first");
  return *platform;
}

}  // namespace qx
