// Failures as values, and the one way to stop the process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace qx {

/// The platform error object: which family of errors, which one, and a text for people.
/// Never holds a credential, a token or a signature.
struct Error {
  std::string domain;
  std::int64_t code = 0;
  /// The localised description.
  std::string description;

  friend bool operator==(const Error&, const Error&) = default;
};

/// A value, or the error that kept it away.
template <typename T>
class Result {
 public:
  // The constructors are implicit on purpose: a function returns a value or an error as it stands,
  // and the Result is made of it.
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

  explicit operator bool() const { return state_.index() == 0; }
  /// Only when there is a value.
  const T& operator*() const { return std::get<0>(state_); }
  T& operator*() { return std::get<0>(state_); }
  const T* operator->() const { return &std::get<0>(state_); }
  /// Only when there is none.
  const Error& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, Error> state_;
};

/// Writes "QXAwsUploader: fatal: <message>" as one line to standard error and stops the process
/// with abort(). For what cannot be a failure value: a broken promise of the calling program.
[[noreturn]] void fatal(std::string_view message);

}  // namespace qx
