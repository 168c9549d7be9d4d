// What is stored for the user of the settings, for commands that send nothing.
//
// Threads: the main thread only.
#pragma once

#include <string>

#include "Settings.h"
#include "StoredTasks.h"
#include "UnknownScopes.h"
#include "platforms/linux/LinuxPlatform.h"

namespace qx::app {

class UserStore {
 public:
  explicit UserStore(const Settings& settings);

  const std::string& userId() const { return userId_; }
  /// Refers to this object.
  StoredLog log();
  /// Refers to this object.
  UnknownScopes unknownScopes();

 private:
  LinuxPlatform platform_;
  const Platform seams_;
  const std::string userId_;
  const std::string documents_;
};

}  // namespace qx::app
