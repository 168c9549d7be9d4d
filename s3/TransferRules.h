// What a transfer does after each answer of the store: whether it has succeeded, is to be sent
// again, or has failed. One pure function over values; see decide().
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

/// What does not change while a transfer lasts.
struct TransferTarget {
  StoreEndpoint endpoint;
  std::string bucket;
  /// Percent-encoded.
  std::string encodedKey;
  bool isDownload = false;
  /// Seconds for the transfer, all attempts and pauses included.
  double timeoutSeconds = 0;
  /// True: only the time in which nothing moves counts; see LinuxSettings.
  bool countsStandstillOnly = false;
};

/// Where a transfer stands between two requests.
struct TransferState {
  StoreAddress address;
  std::string region;
  int attemptsLeft = 0;
  double secondsLeft = 0;
  /// The pause before the latest further attempt; 0 before the first.
  double backoffSeconds = 0;
  int redirects = 0;
  bool clockCorrected = false;
};

/// What the clocks show when an answer comes.
struct TransferTime {
  /// Seconds since 1970 by our own clock.
  double now = 0;
  /// How far the store's clock is ahead, as far as is known.
  double storeOffset = 0;
};

struct TransferDecision {
  enum class Step { succeeded, again, failed };

  Step step = Step::failed;
  /// With `again`: where the transfer stands now, and the pause before its next request.
  TransferState state;
  double delaySeconds = 0;
  /// Set when the store told how far its clock is ahead of ours.
  std::optional<double> learnedOffset;
  /// With `succeeded`: the MD5 in lower-case hex that a downloaded object must have, if known.
  std::optional<std::string> md5;
  /// With `failed`.
  std::optional<Error> error;
};

/// No clock is plausibly further off than this. A wrong time zone makes 26 hours, a machine that
/// goes on from a snapshot some days; a store that speaks of more is wrong itself, and a request
/// signed for its time could be replayed then.
inline constexpr double kLargestClockOffsetSeconds = 7 * 24 * 3600.0;

/// The first state of a transfer.
TransferState beginningOf(const TransferTarget& target, std::string region, int attempts);

/// `secrets` are left out of what the store says.
TransferDecision decide(const TransferTarget& target, const TransferState& state,
                        const TransferTime& time, const HttpAnswer& answer,
                        const std::vector<std::string_view>& secrets);

}  // namespace qx
