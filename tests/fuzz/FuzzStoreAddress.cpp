// Every endpoint can be sent and is read as itself again. The target of every redirect belongs to
// the store.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "http/Headers.h"
#include "s3/StoreAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  if (const auto endpoint = qx::StoreEndpoint::parse(text)) {
    const std::string again = endpoint->scheme + "://" + endpoint->authority();
    if (qx::StoreEndpoint::parse(again) != endpoint) std::abort();
    if (qx::checkSendable(qx::addressOf(*endpoint, "bucket", "k").url(), {})) std::abort();
  }
  const auto store = qx::StoreEndpoint::parse("https://s3.example.com");
  const auto current = qx::addressOf(*store, "bucket", "k");
  if (const auto target = qx::redirectedAddress(*store, current, "bucket", "k", text)) {
    if (target->scheme != "https" || qx::checkSendable(target->url(), {})) std::abort();
    if (target->authority != "s3.example.com" && !target->authority.ends_with(".example.com")) {
      std::abort();
    }
    if (!target->path.ends_with("/k")) std::abort();
  }
  return 0;
}
