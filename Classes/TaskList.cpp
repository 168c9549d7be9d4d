#include "Classes/TaskList.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace qx {
namespace {

std::string_view stageText(TaskStage stage) {
  switch (stage) {
    case TaskStage::running:
      return "running";
    case TaskStage::queued:
      return "queued";
    case TaskStage::stored:
      return "stored";
  }
  return "";
}

std::string slotText(const TaskFacts& facts) {
  return "waits for a slot: " + std::to_string(facts.running) + " of " +
         std::to_string(facts.limit) + " are in use, " + std::to_string(facts.before) +
         " uploads wait before it";
}

std::string retryText(const TaskFacts& facts) {
  if (!facts.nextTry) return "waits for its next attempt";
  const double seconds = std::max(0.0, std::ceil(*facts.nextTry - facts.now));
  return "waits for its next attempt in " + std::to_string(static_cast<std::int64_t>(seconds)) +
         " s";
}

}  // namespace

Standstill standstillOf(const TaskFacts& facts) {
  if (facts.stage == TaskStage::running) return {};
  if (facts.stray) return {"stray", "its entry names a file outside the user's directory"};
  if (facts.bytesMissing) return {"bytes", "its data file is missing"};
  if (facts.held) return {"cancelled", "is cancelled"};
  if (facts.paused) return {"paused", "is paused"};
  if (!facts.reachable) return {"network", "waits for the network"};
  if (facts.refusal) return {"credentials", "waits for credentials: " + *facts.refusal};
  if (facts.stage == TaskStage::queued) return {"slot", slotText(facts)};
  return {"retry", retryText(facts)};
}

Dictionary listed(const Task& task, const ListedTask& told) {
  const TaskFacts& facts = told.facts;
  const Standstill standstill = standstillOf(facts);
  Dictionary extra;
  for (const auto& [key, value] : task.extra()) extra[key] = value.toString();
  Dictionary entry = {{"name", task.filename()},   {"kind", std::string(kindText(told.kind))},
                      {"scope", task.scope()},     {"stored", told.stored},
                      {"attempts", told.attempts}, {"state", std::string(stageText(facts.stage))},
                      {"why", standstill.why},     {"reason", standstill.reason}};
  const auto tag = extra.find(std::string(kTagExtra));
  if (tag != extra.end()) entry["tag"] = tag->second;
  entry["extra"] = std::move(extra);
  if (told.size) entry["size"] = static_cast<std::int64_t>(*told.size);
  if (told.accepted) {
    entry["accepted"] = *told.accepted;
    entry["age"] = std::max(0.0, facts.now - *told.accepted);
  }
  if (standstill.why == "retry" && facts.nextTry) entry["nextTry"] = *facts.nextTry;
  return entry;
}

}  // namespace qx
