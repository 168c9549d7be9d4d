#include "HostEvent.h"

namespace qx::app {

std::string textOf(const Dictionary& event, std::string_view key) {
  return readText(event, key).value_or("");
}

bool flagOf(const Dictionary& event, std::string_view key) {
  return readBool(event, key).value_or(false);
}

std::int64_t numberOf(const Dictionary& event, std::string_view key) {
  return readInt(event, key).value_or(0);
}

Error errorOf(const Dictionary& event) {
  return {textOf(event, "domain"), numberOf(event, "code"), textOf(event, "text")};
}

int backendStatusOf(const Dictionary& event) {
  return static_cast<int>(numberOf(event, "backendStatus"));
}

}  // namespace qx::app
