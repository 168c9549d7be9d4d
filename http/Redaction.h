// Removes secrets from texts that a server has written, because an error record may repeat what the
// server was sent.
//
// One list holds the secrets in force of the whole process. The store's credentials are therefore
// removed from texts of the backend, and the user's token from texts of the store.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mutex.h"

namespace qx {

/// The number of first bytes by which a secret is recognised. A shorter secret cannot be told from
/// ordinary words and is not removed.
inline constexpr std::size_t kShortestSecret = 16;

/// The text with "..." in place of the secrets. A secret is found when it is unchanged,
/// percent-encoded in any way or part of a base64 text, and also when only its beginning is there.
std::string withoutSecrets(std::string_view text, const std::vector<std::string_view>& secrets);

/// The list of the secrets in force of this process.
class SecretsInForce {
 public:
  /// Keeps secrets in force as long as it exists.
  class Holder {
   public:
    explicit Holder(std::vector<std::string> secrets);
    ~Holder();
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

   private:
    const std::vector<std::string> secrets_;
  };

  /// The text without the secrets in force and without `others`.
  static std::string leftOutOf(std::string_view text, const std::vector<std::string_view>& others);

 private:
  static SecretsInForce& ofProcess();

  Mutex mutex_;
  /// The number of holders of each secret.
  std::map<std::string, int> holders_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
