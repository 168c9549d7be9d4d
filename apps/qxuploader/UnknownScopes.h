// The scopes that the backend did not know when one of their tasks was last tried, so that their
// stored tasks cannot succeed. They are kept beside the stored tasks, because "status" does not ask
// the backend.
//
// Threads: only for the main thread. A program that notes a scope has the documents directory to
// itself.
#pragma once

#include <set>
#include <string>

#include "platform/Files.h"
#include "platform/Formats.h"

namespace qx::app {

class UnknownScopes {
 public:
  /// Reads the scopes that were noted for the user. Nothing when they cannot be read.
  UnknownScopes(Files& files, Json& json, const std::string& documents, std::string userId);

  bool contains(const std::string& scope) const { return scopes_.contains(scope); }
  /// Notes whether the backend knows a scope. A note that cannot be written is dropped, because it
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
