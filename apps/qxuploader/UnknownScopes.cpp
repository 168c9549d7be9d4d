#include "UnknownScopes.h"

#include <string_view>
#include <utility>

#include "platform/Value.h"

namespace qx::app {
namespace {

/// The scopes of every user, by user id.
Dictionary readAll(Files& files, Json& json, const std::string& path) {
  const auto bytes = files.read(path);
  const auto value = bytes ? json.decode(*bytes) : Result<Value>(bytes.error());
  const Dictionary* users = value ? value->asDictionary() : nullptr;
  return users != nullptr ? *users : Dictionary();
}

}  // namespace

UnknownScopes::UnknownScopes(Files& files, Json& json, const std::string& documents,
                             std::string userId)
    : files_(files),
      json_(json),
      path_(documents + "/.qxuploader-unknown-scopes.json"),
      userId_(std::move(userId)) {
  const Dictionary users = readAll(files_, json_, path_);
  const auto own = users.find(userId_);
  const Array* scopes = own == users.end() ? nullptr : own->second.asArray();
  if (scopes == nullptr) return;
  for (const Value& scope : *scopes) {
    if (const std::string* name = scope.asText()) scopes_.insert(*name);
  }
}

void UnknownScopes::note(const std::string& scope, bool unknown) {
  const bool changed = unknown ? scopes_.insert(scope).second : scopes_.erase(scope) > 0;
  if (!changed) return;
  Dictionary users = readAll(files_, json_, path_);
  users[userId_] = Array(scopes_.begin(), scopes_.end());
  const auto text = json_.encode(Value(std::move(users)));
  if (!text) return;
  const std::string_view content = *text;
  (void)files_.write(path_, {&content, 1}, WriteMode::atomic, Durability::cached);
}

}  // namespace qx::app
