// The item-tag tracker of a host that has none: tagging goes nowhere.
//
// Threads: no state; every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Host.h"

namespace qx {

class DefaultTrackingEvents : public QXTrackingEvents {
 public:
  void tagItem(const std::string& itemType, std::int64_t itemId, const std::string& imageUrl,
               const std::optional<std::vector<std::string>>& tags, std::int64_t imageSource,
               const std::optional<Dictionary>& fields) override;
  void updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                  const std::optional<std::vector<std::string>>& tags,
                  const std::optional<Dictionary>& fields) override;
  /// What JSON can hold stays as it is, a date becomes RFC 3339 text in UTC with milliseconds;
  /// bytes, host objects and numbers that are not finite have no form.
  std::optional<Dictionary> anyCodable(const Dictionary& values) override;
};

}  // namespace qx
