#include "fakes/FakeValues.h"

#include <bit>
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

std::array<std::byte, 20> SimpleSha1::digest(const Data& bytes) {
  std::string message(bytes.text());
  const std::uint64_t bitCount = std::uint64_t{message.size()} * 8;
  message.push_back('\x80');
  while (message.size() % 64 != 56) message.push_back('\0');
  for (int shift = 56; shift >= 0; shift -= 8) {
    message.push_back(static_cast<char>((bitCount >> shift) & 0xFF));
  }

  std::array<std::uint32_t, 5> state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  for (std::size_t block = 0; block < message.size(); block += 64) {
    std::array<std::uint32_t, 80> w{};
    for (std::size_t i = 0; i < 16; ++i) {
      for (std::size_t j = 0; j < 4; ++j) {
        w[i] = (w[i] << 8) | static_cast<unsigned char>(message[block + i * 4 + j]);
      }
    }
    for (std::size_t i = 16; i < 80; ++i) {
      w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    }
    auto [a, b, c, d, e] = state;
    for (std::size_t i = 0; i < 80; ++i) {
      std::uint32_t f = 0;
      std::uint32_t k = 0;
      if (i < 20) {
        f = (b & c) | (~b & d);
        k = 0x5A827999;
      } else if (i < 40) {
        f = b ^ c ^ d;
        k = 0x6ED9EBA1;
      } else if (i < 60) {
        f = (b & c) | (b & d) | (c & d);
        k = 0x8F1BBCDC;
      } else {
        f = b ^ c ^ d;
        k = 0xCA62C1D6;
      }
      const std::uint32_t next = std::rotl(a, 5) + f + e + k + w[i];
      e = d;
      d = c;
      c = std::rotl(b, 30);
      b = a;
      a = next;
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d, state[4] + e};
  }

  std::array<std::byte, 20> digest{};
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<std::byte>((state[i / 4] >> (24 - 8 * (i % 4))) & 0xFF);
  }
  return digest;
}

}  // namespace qx
