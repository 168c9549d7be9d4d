#include "Session.h"

#include "Interrupts.h"

namespace qx::app {

Session::Session(const Context& context)
    : context_(context), host_(context.settings, context.token, *this) {}

int Session::run() {
  Interrupts::watch(
      [this] {
        host_.post([this] {
          if (!finished()) interrupted();
        });
      },
      [this] { removeScratch(); });
  host_.post([this] { begin(); });
  host_.run();
  out().endLive();
  removeScratch();
  return status_.value_or(kSomeFailed);
}

void Session::finish(int status) {
  if (finished()) return;
  status_ = status;
  host_.stop();
}

void Session::removeScratch() const {
  if (context_.scratch != nullptr) context_.scratch->remove();
}

void Session::onLog(const LogRecord& record) {
  if (!context_.verbose) return;
  host_.post([this, record] { out().logRecord(record); });
}

void Session::onPrint(const std::string& line) {
  host_.post([this, line] { out().note(line); });
}

std::string Session::documents() {
  const auto directories = host_.seams().files.documentDirectories();
  return directories.empty() ? std::string() : directories.front();
}

}  // namespace qx::app
