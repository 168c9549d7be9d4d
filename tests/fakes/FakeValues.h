// Random numbers, identifiers and image headers that a test can predict.
//
//     FakeRandom random;
//     random.push(42);
//     random.next();  // 42, then 1, 2, 3 and so on.
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

/// The numbers given to push(), then 1, 2, 3 and so on.
class FakeRandom : public Random {
 public:
  std::uint32_t next() override;
  void push(std::uint32_t value);

 private:
  Mutex mutex_;
  std::uint32_t last_ QX_GUARDED_BY(mutex_) = 0;
  std::deque<std::uint32_t> pushed_ QX_GUARDED_BY(mutex_);
};

/// The identifiers "00000000-0000-4000-8000-000000000001" and so on.
class FakeUuid : public Uuid {
 public:
  std::string random() override;

 private:
  Mutex mutex_;
  std::uint64_t last_ QX_GUARDED_BY(mutex_) = 0;
};

/// Knows only the images that the test has added.
class FakeImageHeaders : public ImageHeaders {
 public:
  std::optional<ImageSize> size(const Data& image) override;
  void add(Data image, ImageSize size);

 private:
  Mutex mutex_;
  std::vector<std::pair<Data, ImageSize>> images_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
