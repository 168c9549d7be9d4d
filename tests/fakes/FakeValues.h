// Randomness, identifiers and image headers that a test can foresee.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Clock.h"
#include "platform/Formats.h"
#include "platform/Mutex.h"

namespace qx {

/// 1, 2, 3, ... after what push() lined up.
class FakeRandom : public Random {
 public:
  std::uint32_t next() override;
  void push(std::uint32_t value);

 private:
  Mutex mutex_;
  std::uint32_t last_ QX_GUARDED_BY(mutex_) = 0;
  std::deque<std::uint32_t> pushed_ QX_GUARDED_BY(mutex_);
};

/// "00000000-0000-4000-8000-000000000001" and so on.
class FakeUuid : public Uuid {
 public:
  std::string random() override;

 private:
  Mutex mutex_;
  std::uint64_t last_ QX_GUARDED_BY(mutex_) = 0;
};

/// Knows the images it was told about.
class FakeImageHeaders : public ImageHeaders {
 public:
  std::optional<ImageSize> size(const Data& image) override;
  void add(Data image, ImageSize size);

 private:
  Mutex mutex_;
  std::vector<std::pair<Data, ImageSize>> images_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
