// The scopes that the backend did not know when a task of theirs was last tried: what is stored for
// them cannot succeed. Kept beside the stored tasks, for "status" asks no backend.
//
// Threads: the main thread. Runs of two users may write the file at the same time; then the notes
// of one of them are lost, which only explain.
#pragma once

#include <set>
#include <string>

#include "platform/Files.h"
#include "platform/Formats.h"

namespace qx::app {

class UnknownScopes {
 public:
  /// Reads what was noted for the user; nothing when it cannot be read.
  UnknownScopes(Files& files, Json& json, const std::string& documents, std::string userId);

  bool contains(const std::string& scope) const { return scopes_.contains(scope); }
  /// Notes what the backend's answer said of a scope. A note that cannot be written is left out: it
  /// only explains.
  void note(const std::string& scope, bool unknown);

 private:
  Files& files_;
  Json& json_;
  const std::string path_;
  const std::string userId_;
  std::set<std::string> scopes_;
};

}  // namespace qx::app
