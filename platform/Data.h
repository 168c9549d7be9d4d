// Immutable bytes shared by reference.
//
//     const Data text("hello");  // Keeps the text itself.
//     const auto bytes = std::make_shared<const std::vector<char>>(1 << 20);
//     const Data shared(bytes, bytes->data(), bytes->size());  // Keeps the vector alive.
//
// Threads: a Data may be copied and read from any thread. Its bytes never change.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.h"

namespace qx {

/// A handle to bytes. Copying a Data copies the handle, never the bytes.
class QX_EXPORT Data {
 public:
  /// No bytes.
  Data() = default;
  /// Takes the bytes of `text` without copying them.
  explicit Data(std::string text);
  /// Takes the bytes of `bytes` without copying them.
  explicit Data(std::vector<std::byte> bytes);
  /// Refers to `size` bytes at `bytes`, which stay valid and unchanged as long as `owner` lives.
  Data(std::shared_ptr<const void> owner, const void* bytes, std::size_t size);

  const std::byte* bytes() const { return bytes_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// The bytes as a text. They need not be UTF-8.
  std::string_view text() const { return {reinterpret_cast<const char*>(bytes_), size_}; }

  /// Compares the bytes, not their addresses.
  friend bool operator==(const Data& a, const Data& b) { return a.text() == b.text(); }

 private:
  std::shared_ptr<const void> owner_;
  const std::byte* bytes_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace qx
