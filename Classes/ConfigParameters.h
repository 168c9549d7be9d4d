// The user's identity and the backend's address, as the host gives them.
//
// Threads: a plain value. readFromHost() asks the mediator on the calling thread.
#pragma once

#include <optional>
#include <string>

#include "platform/Host.h"
#include "platform/Url.h"

namespace qx {

/// An identity, which is never stored on disk.
struct ConfigParameters {
  /// Each of these two is empty when the host does not give it.
  std::string userId;
  std::string accessToken;
  /// Absent when the host gives no address or one that cannot be parsed.
  std::optional<Url> hostURL;

  /// Asks the host for "Account_GetUserId", "Account_GetAccessToken" and
  /// "QXConfig_getServerAddress".
  static ConfigParameters readFromHost(QXMediator& host);

  /// True when the user id, the access token and the address are all there.
  bool isComplete() const { return !userId.empty() && !accessToken.empty() && hostURL; }

  friend bool operator==(const ConfigParameters&, const ConfigParameters&) = default;
};

}  // namespace qx
