// The signed-in user's session at one moment.
//
// Threads: an immutable value, which AWSConfigure replaces as a whole.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Classes/ConfigParameters.h"
#include "Classes/UploadTokenModel.h"
#include "platform/Networking.h"

namespace qx {

struct Session {
  /// The identity that was applied last.
  std::optional<ConfigParameters> configParameters;
  /// The message client of that identity.
  std::shared_ptr<QXMessageAPINetworkingManager> networkingManager;
  /// The credentials of each scope, from the latest successful fetch.
  std::map<std::string, UploadTokenModel> configMap;
  /// Changes with each successful fetch. It is part of the keys of the transfer utilities of that
  /// fetch.
  std::optional<std::string> configUUID;
};

}  // namespace qx
