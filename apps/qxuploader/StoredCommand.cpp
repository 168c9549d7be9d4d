#include "StoredCommand.h"

#include "HostEvent.h"
#include "Interrupts.h"

namespace qx::app {

void StoredCommand::begin() {
  host().listStored([this](const std::vector<ListedTask>& tasks) {
    if (!unavailable_) return show(tasks);
    const std::string why = unreadableText(*unavailable_);
    out().failure({{"event", "failed"}, {"error", why}}, why);
    finish(kSomeFailed);
  });
}

void StoredCommand::onEvent(const Dictionary& event) {
  if (textOf(event, "event") == "storeUnavailable") unavailable_ = errorOf(event);
}

UnknownScopes StoredCommand::unknownScopes() {
  const Platform& seams = host().seams();
  return {seams.files, seams.json, documents(), userId()};
}

void StoredCommand::interrupted() {
  finish(kInterrupted);
}

}  // namespace qx::app
