// Failures as values, and the one way to stop the process.
//
//     const Result<Data> file = files.read("/home/me/a.jpg");
//     if (!file) return file.error();  // Error{"Files", ENOENT, "..."}
//     send(*file);
//
// Threads: plain values; fatal() may be called from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/Export.h"

namespace qx {

/// A failure: the family of errors, the number within the family, and a text for people. It never
/// holds a credential, a token or a signature.
struct QX_EXPORT Error {
  std::string domain;
  std::int64_t code = 0;
  /// The localised description.
  std::string description;

  friend bool operator==(const Error&, const Error&) = default;
};

/// Either a value or the error because of which there is none.
template <typename T>
class Result {
 public:
  // The constructors are implicit on purpose: a function returns a value or an error as it stands,
  // and the Result is made of it.
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  explicit operator bool() const { return state_.index() == 0; }
  /// Call these three only when there is a value.
  const T& operator*() const { return std::get<0>(state_); }
  T& operator*() { return std::get<0>(state_); }
  const T* operator->() const { return &std::get<0>(state_); }
  /// Call this only when there is no value.
  const Error& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, Error> state_;
};

/// Writes "QXAwsUploader: fatal: <message>" as one line to standard error and stops the process
/// with abort(). It is meant for broken promises of the calling program, which cannot be failure
/// values.
[[noreturn]] QX_EXPORT void fatal(std::string_view message);

}  // namespace qx
