// The user identity and the backend's address, as the host gives them.
//
// Threads: plain value; readFromHost asks the mediator on the calling thread.
#pragma once

#include <optional>
#include <string>

#include "platform/Host.h"
#include "platform/Url.h"

namespace qx {

/// Never stored on disk.
struct ConfigParameters {
  /// Empty when the host has none.
  std::string userId;
  std::string accessToken;
  /// Absent when the host gives none or it does not parse.
  std::optional<Url> hostURL;

  /// Asks the host anew ("Account_GetUserId", "Account_GetAccessToken",
  /// "QXConfig_getServerAddress").
  static ConfigParameters readFromHost(QXMediator& host);

  /// User id, access token and host address are all there.
  bool isComplete() const { return !userId.empty() && !accessToken.empty() && hostURL; }

  friend bool operator==(const ConfigParameters&, const ConfigParameters&) = default;
};

}  // namespace qx
