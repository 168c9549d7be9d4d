// What is known of the signed-in user's session at one moment.
//
// Threads: an immutable value; AWSConfigure replaces it as a whole.
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
  /// The identity applied last.
  std::optional<ConfigParameters> configParameters;
  /// The message client of that identity.
  std::shared_ptr<QXMessageAPINetworkingManager> networkingManager;
  /// Credentials per scope, as the last successful fetch brought them.
  std::map<std::string, UploadTokenModel> configMap;
  /// Made anew with each successful fetch; part of the keys of its transfer utilities.
  std::optional<std::string> configUUID;
};

}  // namespace qx
