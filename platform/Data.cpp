#include "platform/Data.h"

#include <utility>

namespace qx {

Data::Data(std::string text) {
  auto owner = std::make_shared<const std::string>(std::move(text));
  bytes_ = reinterpret_cast<const std::byte*>(owner->data());
  size_ = owner->size();
  owner_ = std::move(owner);
}

Data::Data(std::vector<std::byte> bytes) {
  auto owner = std::make_shared<const std::vector<std::byte>>(std::move(bytes));
  bytes_ = owner->data();
  size_ = owner->size();
  owner_ = std::move(owner);
}

Data::Data(std::shared_ptr<const void> owner, const void* bytes, std::size_t size)
    : owner_(std::move(owner)), bytes_(static_cast<const std::byte*>(bytes)), size_(size) {}

}  // namespace qx
