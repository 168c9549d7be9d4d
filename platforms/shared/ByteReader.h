// Reads numbers from foreign bytes, one after the other. A read beyond the end yields zero and is
// remembered, so that the reader of a format checks only once, after its last read.
//
// Threads: a plain value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qx {

class ByteReader {
 public:
  enum class Order { bigEndian, littleEndian };

  ByteReader(std::string_view bytes, Order order) : bytes_(bytes), order_(order) {}

  /// Reads a number of `width` bytes, at most eight.
  std::uint64_t number(std::size_t width) {
    const std::string_view digits = take(width);
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
      const std::size_t at = order_ == Order::bigEndian ? i : digits.size() - 1 - i;
      value = value << 8 | static_cast<unsigned char>(digits[at]);
    }
    return value;
  }
  std::uint8_t u8() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t u64() { return number(8); }

  /// Takes the next `count` bytes. If fewer are left, this is a read beyond the end and yields
  /// none.
  std::string_view take(std::uint64_t count) {
    if (count > bytes_.size()) {
      bytes_ = {};
      complete_ = false;
      return {};
    }
    const std::string_view taken = bytes_.substr(0, static_cast<std::size_t>(count));
    bytes_.remove_prefix(taken.size());
    return taken;
  }
  void skip(std::uint64_t count) { (void)take(count); }

  /// The bytes that have not been read yet.
  std::string_view rest() const { return bytes_; }
  /// False after a read beyond the end.
  bool complete() const { return complete_; }

 private:
  std::string_view bytes_;
  Order order_;
  bool complete_ = true;
};

}  // namespace qx
