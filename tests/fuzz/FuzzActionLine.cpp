// For every input line, "actions" yields parameters or an error that names one of them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ActionLine.h"
#include "platforms/shared/NlohmannJson.h"

namespace {

/// Lines that would read a file of this machine are skipped.
bool namesAFile(const qx::Value& value) {
  if (const qx::Array* elements = value.asArray()) {
    return std::any_of(elements->begin(), elements->end(), namesAFile);
  }
  const qx::Dictionary* entries = value.asDictionary();
  if (entries == nullptr) return false;
  return entries->contains("file") ||
         std::any_of(entries->begin(), entries->end(),
                     [](const auto& entry) { return namesAFile(entry.second); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  if (const auto decoded = qx::app::fromBase64(text)) {
    if (decoded->size() > size / 4 * 3) std::abort();
  }
  const auto line = qx::NlohmannJson().decode(qx::Data(text));
  const qx::Dictionary* params = line ? line->asDictionary() : nullptr;
  if (params == nullptr || namesAFile(*line)) return 0;
  const auto parameters =
      qx::app::actionParameters("Action_Upload:", *params,
                                [](const std::string&, const std::string&,
                                   const std::string& name) { return qx::Value(name); });
  if (parameters) {
    if (parameters->size() != params->size()) std::abort();
  } else if (std::none_of(params->begin(), params->end(), [&](const auto& entry) {
               return parameters.error().description.find(entry.first) != std::string::npos;
             })) {
    std::abort();
  }
  return 0;
}
