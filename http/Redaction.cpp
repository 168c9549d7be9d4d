#include "http/Redaction.h"

namespace qx {

void leaveOut(std::string& text, std::string_view secret) {
  if (secret.size() < 4) return;
  constexpr std::string_view kMark = "...";
  for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
    text.replace(at, secret.size(), kMark);
    at += kMark.size();
  }
}

}  // namespace qx
