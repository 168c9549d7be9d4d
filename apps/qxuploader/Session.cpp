#include "Session.h"

#include <cerrno>

#include "Advice.h"
#include "Interrupts.h"

namespace qx::app {

Session::Session(const Context& context)
    : context_(context), host_(context.settings, context.token, *this) {}

int Session::run() {
  const Interrupts interrupts([this] {
    host_.post([this] {
      if (!finished()) interrupted();
    });
  });
  host_.post([this] { begin(); });
  host_.run();
  out().endLive();
  host_.shutDown();
  return status_.value_or(kSomeFailed);
}

void Session::finish(int status) {
  if (finished()) return;
  status_ = status;
  host_.stop();
}

void Session::onLog(const LogRecord& record) {
  if (!context_.verbose) return;
  host_.post([this, record] { out().logRecord(record); });
}

void Session::onPrint(const std::string& line) {
  host_.post([this, line] { out().note(line); });
}

std::string Session::documents() const {
  return context_.settings.get("documents").value_or("");
}

std::string Session::userId() const {
  return context_.settings.get("user_id").value_or("");
}

bool Session::makeDocuments() {
  Files& files = host_.seams().files;
  const auto directories = files.documentDirectories();
  const auto error = directories.empty() ? Error{"Files", 0, "no directory for documents is known"}
                                         : files.createDirectory(directories.front());
  if (!error) return true;
  out().failure({{"event", "failed"}, {"error", errorFields(*error)}},
                error->description + "; name a directory that can be written with --documents");
  finish(kSomeFailed);
  return false;
}

std::string Session::unreadableText(const Error& error) {
  // Errors of the system have numbers. A damaged log has none.
  return error.code != 0 ? error.description
                         : error.description + "; the next background upload sets it aside";
}

bool Session::refusesStored(const Error& error) {
  return error.code == EWOULDBLOCK || error.code == ELOOP;
}

void Session::tellRefusal(const Error& error) {
  const bool inUse = error.code == EWOULDBLOCK;
  const std::string why =
      inUse ? documents() + " is in use by another qxuploader" : error.description;
  out().failure({{"event", "failed"}, {"file", documents()}, {"error", why}},
                why + (inUse ? "; wait for its end" : "; remove the link") +
                    " or name another directory with --documents");
}

}  // namespace qx::app
