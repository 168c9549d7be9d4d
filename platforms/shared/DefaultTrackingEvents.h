// The item-tag tracker of a host that has none. It drops all item tags.
//
// Threads: no state. Every operation may be called from any thread.
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
  /// A value that JSON can hold stays as it is, and a date becomes RFC 3339 text in UTC with
  /// milliseconds. Bytes, host objects and numbers that are not finite have no such form.
  std::optional<Dictionary> anyCodable(const Dictionary& values) override;
};

}  // namespace qx
