// Keeps secrets out of texts that others wrote: an error record may repeat what it was sent.
//
// One list holds the secrets in force of the whole process, so that the store's credentials stay
// out of what the backend says as well, and the user's token out of what the store says.
//
// Threads: all operations may be called from any thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mutex.h"

namespace qx {

/// A secret shorter than this cannot be told from ordinary words and eats no text; of a longer one
/// so many first bytes are enough to be recognised.
inline constexpr std::size_t kShortestSecret = 16;

/// `text` with "..." in place of the secrets: each as it is, percent-encoded in any way or as part
/// of a base64 text, also when only its beginning is there.
std::string withoutSecrets(std::string_view text, const std::vector<std::string_view>& secrets);

/// The secrets in force of this process.
class SecretsInForce {
 public:
  /// Keeps secrets in force as long as it lives.
  class Holder {
   public:
    explicit Holder(std::vector<std::string> secrets);
    ~Holder();
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

   private:
    const std::vector<std::string> secrets_;
  };

  /// `text` without the secrets in force and without `others`.
  static std::string leftOutOf(std::string_view text, const std::vector<std::string_view>& others);

 private:
  static SecretsInForce& ofProcess();

  Mutex mutex_;
  /// How many holders keep each.
  std::map<std::string, int> holders_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
