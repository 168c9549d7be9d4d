#include "fakes/SimpleDigests.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

namespace qx {
namespace {

constexpr std::size_t kBlock = 64;

enum class Order { bigEndian, littleEndian };

/// The position of the byte of this significance (0: the least significant one) in a number of
/// `size` bytes.
std::size_t place(std::size_t significance, std::size_t size, Order order) {
  return order == Order::littleEndian ? significance : size - 1 - significance;
}

/// The message with its end mark, zeros and length in bits: a whole number of blocks.
std::string padded(std::string_view bytes, Order order) {
  std::string message(bytes);
  message.push_back('\x80');
  while (message.size() % kBlock != kBlock - 8) message.push_back('\0');
  const std::uint64_t bits = std::uint64_t{bytes.size()} * 8;
  std::string length(8, '\0');
  for (std::size_t i = 0; i < 8; ++i) {
    length[place(i, 8, order)] = static_cast<char>((bits >> (8 * i)) & 0xFF);
  }
  return message + length;
}

std::uint32_t wordAt(const std::string& message, std::size_t offset, Order order) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const auto byte = static_cast<unsigned char>(message[offset + place(i, 4, order)]);
    word |= std::uint32_t{byte} << (8 * i);
  }
  return word;
}

template <std::size_t words>
std::array<std::byte, 4 * words> digestOf(const std::array<std::uint32_t, words>& state,
                                          Order order) {
  std::array<std::byte, 4 * words> digest{};
  for (std::size_t w = 0; w < words; ++w) {
    for (std::size_t i = 0; i < 4; ++i) {
      digest[4 * w + place(i, 4, order)] = static_cast<std::byte>((state[w] >> (8 * i)) & 0xFF);
    }
  }
  return digest;
}

/// The first 32 bits of the fraction of a root of the first `n` primes: of the square root for the
/// state, of the cube root for the constants of the rounds.
template <std::size_t count>
std::array<std::uint32_t, count> rootsOfPrimes(long double (*root)(long double)) {
  std::array<std::uint32_t, count> roots{};
  std::uint32_t candidate = 2;
  for (std::size_t found = 0; found < count; ++candidate) {
    bool prime = true;
    for (std::uint32_t i = 2; i * i <= candidate; ++i) prime = prime && candidate % i != 0;
    if (!prime) continue;
    const long double value = root(candidate);
    roots[found++] = static_cast<std::uint32_t>((value - std::floor(value)) * 4294967296.0L);
  }
  return roots;
}

class SimpleMd5 : public Md5 {
 public:
  void update(std::string_view bytes) override { bytes_ += bytes; }
  Md5Digest finish() override;

 private:
  std::string bytes_;
};

// RFC 1321.
Md5Digest SimpleMd5::finish() {
  constexpr std::array<std::array<int, 4>, 4> kShifts = {
      {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}}};
  const std::string message = padded(bytes_, Order::littleEndian);
  std::array<std::uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (std::size_t block = 0; block < message.size(); block += kBlock) {
    auto [a, b, c, d] = state;
    for (std::size_t i = 0; i < 64; ++i) {
      std::uint32_t f = 0;
      std::size_t g = 0;
      switch (i / 16) {
        case 0:
          f = (b & c) | (~b & d);
          g = i;
          break;
        case 1:
          f = (d & b) | (~d & c);
          g = (5 * i + 1) % 16;
          break;
        case 2:
          f = b ^ c ^ d;
          g = (3 * i + 5) % 16;
          break;
        default:
          f = c ^ (b | ~d);
          g = (7 * i) % 16;
      }
      const auto k = static_cast<std::uint32_t>(
          std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0));
      f += a + k + wordAt(message, block + 4 * g, Order::littleEndian);
      a = d;
      d = c;
      c = b;
      b += std::rotl(f, kShifts[i / 16][i % 4]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
  }
  return digestOf(state, Order::littleEndian);
}

}  // namespace

// FIPS 180-4.
Sha1Digest SimpleDigests::sha1(std::string_view bytes) {
  const std::string message = padded(bytes, Order::bigEndian);
  std::array<std::uint32_t, 5> state = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  for (std::size_t block = 0; block < message.size(); block += kBlock) {
    std::array<std::uint32_t, 80> w{};
    for (std::size_t i = 0; i < 16; ++i) w[i] = wordAt(message, block + 4 * i, Order::bigEndian);
    for (std::size_t i = 16; i < 80; ++i) {
      w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    }
    auto [a, b, c, d, e] = state;
    for (std::size_t i = 0; i < 80; ++i) {
      std::uint32_t f = b ^ c ^ d;
      std::uint32_t k = i < 40 ? 0x6ED9EBA1 : 0xCA62C1D6;
      if (i < 20) {
        f = (b & c) | (~b & d);
        k = 0x5A827999;
      } else if (i >= 40 && i < 60) {
        f = (b & c) | (b & d) | (c & d);
        k = 0x8F1BBCDC;
      }
      const std::uint32_t next = std::rotl(a, 5) + f + e + k + w[i];
      e = d;
      d = c;
      c = std::rotl(b, 30);
      b = a;
      a = next;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
  }
  return digestOf(state, Order::bigEndian);
}

// FIPS 180-4.
Sha256Digest SimpleDigests::sha256(std::string_view bytes) {
  static const auto constants = rootsOfPrimes<64>([](long double n) { return std::cbrt(n); });
  static const auto initial = rootsOfPrimes<8>([](long double n) { return std::sqrt(n); });
  const std::string message = padded(bytes, Order::bigEndian);
  std::array<std::uint32_t, 8> state = initial;
  for (std::size_t block = 0; block < message.size(); block += kBlock) {
    std::array<std::uint32_t, 64> w{};
    for (std::size_t i = 0; i < 16; ++i) w[i] = wordAt(message, block + 4 * i, Order::bigEndian);
    for (std::size_t i = 16; i < 64; ++i) {
      const std::uint32_t s0 =
          std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
      const std::uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < 64; ++i) {
      const std::uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
      const std::uint32_t first = h + s1 + ((e & f) ^ (~e & g)) + constants[i] + w[i];
      const std::uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
      const std::uint32_t second = s0 + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + first;
      d = c;
      c = b;
      b = a;
      a = first + second;
    }
    const std::array<std::uint32_t, 8> sums = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < 8; ++i) state[i] += sums[i];
  }
  return digestOf(state, Order::bigEndian);
}

// RFC 2104.
Sha256Digest SimpleDigests::hmacSha256(std::string_view key, std::string_view bytes) {
  std::string block(key);
  if (key.size() > kBlock) block = bytesOf(sha256(key));
  block.resize(kBlock, '\0');
  std::string inner;
  std::string outer;
  for (const char c : block) {
    inner += static_cast<char>(c ^ 0x36);
    outer += static_cast<char>(c ^ 0x5c);
  }
  const Sha256Digest first = sha256(inner + std::string(bytes));
  return sha256(outer + std::string(bytesOf(first)));
}

std::unique_ptr<Md5> SimpleDigests::md5() {
  return std::make_unique<SimpleMd5>();
}

}  // namespace qx
