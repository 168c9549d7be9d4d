// A platform with some of its seams replaced.
//
//     Platform::install(platformWith(fakes.seams(), realFiles, realPropertyLists));
//
// Threads: a plain function. Ownership: the seams stay their owners'.
#pragma once

#include <type_traits>

#include "platform/Platform.h"

namespace qx {

/// The replacement that implements `Seam`, the last one if there are several, else `original`.
template <typename Seam, typename... Replacements>
Seam& seamOf(Seam& original, Replacements&... replacements) {
  Seam* chosen = &original;
  const auto consider = [&chosen](auto& replacement) {
    if constexpr (std::is_base_of_v<Seam, std::remove_reference_t<decltype(replacement)>>) {
      chosen = &replacement;
    }
  };
  (consider(replacements), ...);
  return *chosen;
}

/// `original` with each of `replacements` in the place of every seam that it implements.
template <typename... Replacements>
Platform platformWith(const Platform& original, Replacements&... replacements) {
  const auto pick = [&](auto& seam) -> auto& {
    return seamOf(seam, replacements...);
  };
  return {.mediator = pick(original.mediator),
          .logger = pick(original.logger),
          .notifications = pick(original.notifications),
          .trackingEvents = pick(original.trackingEvents),
          .messageClients = pick(original.messageClients),
          .uploadClients = pick(original.uploadClients),
          .reachability = pick(original.reachability),
          .objectStore = pick(original.objectStore),
          .files = pick(original.files),
          .propertyLists = pick(original.propertyLists),
          .json = pick(original.json),
          .imageHeaders = pick(original.imageHeaders),
          .digests = pick(original.digests),
          .dispatch = pick(original.dispatch),
          .random = pick(original.random),
          .uuid = pick(original.uuid),
          .clock = pick(original.clock),
          .console = pick(original.console)};
}

}  // namespace qx
