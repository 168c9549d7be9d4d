// The decision of a transfer after each answer of the store: it has succeeded, is sent again, or
// has failed. This is one pure function over values; see decide().
//
//   answer                                      next
//   200, an upload or a whole object            succeeded
//   connection lost, or timeout without a head  again, while attempts and time are left
//   301 302 307 308 within the same store       again at the new address, three times at most
//   429 500 502 503 504                         again, while attempts and time are left
//   403 RequestTimeTooSkewed                    again by the store's clock, once
//   anything else                               failed
//
// Threads: plain values and pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Http.h"
#include "s3/StoreAddress.h"

namespace qx {

/// The facts that do not change during a transfer.
struct TransferTarget {
  StoreEndpoint endpoint;
  std::string bucket;
  /// The percent-encoded key.
  std::string encodedKey;
  bool isDownload = false;
  /// The seconds for the transfer, including all attempts and pauses.
  double timeoutSeconds = 0;
  /// True: only time in which nothing moves counts; see LinuxSettings.
  bool countsStandstillOnly = false;
};

/// The state of a transfer between two requests.
struct TransferState {
  StoreAddress address;
  std::string region;
  int attemptsLeft = 0;
  double secondsLeft = 0;
  /// The pause before the latest further attempt. 0 before the first.
  double backoffSeconds = 0;
  int redirects = 0;
  bool clockCorrected = false;
};

/// The times of both clocks when an answer comes.
struct TransferTime {
  /// The seconds since 1970 by our own clock.
  double now = 0;
  /// The seconds by which the store's clock is ahead, as far as is known.
  double storeOffset = 0;
};

struct TransferDecision {
  enum class Step { succeeded, again, failed };

  Step step = Step::failed;
  /// With `again`: the new state of the transfer, and the pause before its next request.
  TransferState state;
  double delaySeconds = 0;
  /// Set when the store's answer shows how far its clock is ahead of ours.
  std::optional<double> learnedOffset;
  /// With `succeeded`: the MD5 in lower-case hexadecimal that a downloaded object must have, if it
  /// is known.
  std::optional<std::string> md5;
  /// With `failed`: the error.
  std::optional<Error> error;
};

/// The largest difference of clocks that is believed. A wrong time zone makes 26 hours, a machine
/// that continues from a snapshot some days. A store that shows more is wrong itself, and a request
/// signed for its time could be replayed at that time.
inline constexpr double kLargestClockOffsetSeconds = 7 * 24 * 3600.0;

/// The first state of a transfer.
TransferState beginningOf(const TransferTarget& target, std::string region, int attempts);

/// Decides. `secrets` are removed from the store's texts.
TransferDecision decide(const TransferTarget& target, const TransferState& state,
                        const TransferTime& time, const HttpAnswer& answer,
                        const std::vector<std::string_view>& secrets);

}  // namespace qx
