#include "fakes/FakeValues.h"

#include <cstdio>
#include <utility>

namespace qx {

std::uint32_t FakeRandom::next() {
  MutexLock lock(mutex_);
  if (pushed_.empty()) return ++last_;
  const std::uint32_t value = pushed_.front();
  pushed_.pop_front();
  return value;
}

void FakeRandom::push(std::uint32_t value) {
  MutexLock lock(mutex_);
  pushed_.push_back(value);
}

std::string FakeUuid::random() {
  std::uint64_t number = 0;
  {
    MutexLock lock(mutex_);
    number = ++last_;
  }
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "00000000-0000-4000-8000-%012llX",
                static_cast<unsigned long long>(number));
  return text.data();
}

std::optional<ImageSize> FakeImageHeaders::size(const Data& image) {
  MutexLock lock(mutex_);
  for (const auto& [known, size] : images_) {
    if (known == image) return size;
  }
  return std::nullopt;
}

void FakeImageHeaders::add(Data image, ImageSize size) {
  MutexLock lock(mutex_);
  images_.emplace_back(std::move(image), size);
}

}  // namespace qx
