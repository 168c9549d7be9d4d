#include "Classes/Log.h"

#include <cerrno>
#include <utility>

namespace qx {
namespace {

/// Log records are written only after the answer false. A host that does not know its environment
/// counts as production.
bool isOutsideProduction(QXMediator& mediator) {
  const Value production = mediator.perform("QXConfig_currentEnvironmentIsProduction", {});
  const bool* answer = production.asBool();
  return answer != nullptr && !*answer;
}

std::string moduleOf(std::string_view source) {
  const std::size_t slash = source.find('/');
  return slash == std::string_view::npos ? "n/a" : std::string(source.substr(0, slash));
}

}  // namespace

void log(const Platform& platform, int level, std::string message, std::string_view source,
         std::string_view function, int line) {
  if (!isOutsideProduction(platform.mediator)) return;
  QXLogger& logger = platform.logger;
  if (level < logger.threshold()) return;
  logger.write({level, std::move(message), moduleOf(source), std::string(source),
                std::string(function), line});
}

void logRefusedLink(const Platform& platform, const Error& error, std::string_view source,
                    std::string_view function, int line) {
  if (error.code == ELOOP)
    log(platform, kLogError, "[Error] " + error.description, source, function, line);
}

}  // namespace qx
