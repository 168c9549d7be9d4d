// The whole entries of a damaged log lie in it one after the other, and a log of these entries
// alone is whole.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Classes/LogScanner.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const qx::ScannedLog scanned = qx::scanLog(text);
  const char* end = text.data();
  std::string log = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
  for (const std::string_view entry : scanned.entries) {
    if (entry.data() < end || entry.data() + entry.size() > text.data() + size) std::abort();
    end = entry.data() + entry.size();
    log += entry;
  }
  log += "</dict>\n</plist>\n";
  if (!scanned.xml && (scanned.whole || !scanned.entries.empty())) std::abort();
  const qx::ScannedLog again = qx::scanLog(log);
  if (!again.whole || again.entries.size() != scanned.entries.size()) std::abort();
  return 0;
}
