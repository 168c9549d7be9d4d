// The values that a host dictionary, a JSON text or a property list can hold, and a reader for each
// type.
//
//     const Dictionary parameters = {{"scope", "avatar"}, {"count", 2}, {"data", Data("hello")}};
//     readText(parameters, "scope");  // "avatar"
//     readBool(parameters, "count");  // Nothing, because an integer is not a boolean.
//
// Threads: a Value is a plain value. Copies are independent of one another, but share the bytes of
// Data.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/Data.h"
#include "platform/Export.h"

namespace qx {

class QX_EXPORT Value;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;

/// An instant, as seconds since 1970-01-01T00:00:00Z.
struct Date {
  double secondsSince1970 = 0;
  friend bool operator==(const Date&, const Date&) = default;
};

/// One object for each type. Its address tells the types apart, also in hosts that are compiled
/// without run-time type information. It is exported, so that a host and the shared library use the
/// same object.
template <typename T>
struct QX_EXPORT TypeTag {
  static inline const char tag = 0;
};

/// An object of the host that the library passes on or calls, mostly a callback.
class HostObject {
 public:
  template <typename T>
  static HostObject of(T object) {
    return HostObject(std::make_shared<const T>(std::move(object)), &TypeTag<T>::tag);
  }
  /// The object when its type is exactly T, else null. It lives as long as a copy of this handle.
  template <typename T>
  const T* as() const {
    return type_ == &TypeTag<T>::tag ? static_cast<const T*>(object_.get()) : nullptr;
  }
  /// True for the same object, not for an equal one.
  friend bool operator==(const HostObject& a, const HostObject& b) {
    return a.object_ == b.object_;
  }

 private:
  HostObject(std::shared_ptr<const void> object, const char* type)
      : object_(std::move(object)), type_(type) {}
  std::shared_ptr<const void> object_;
  const char* type_;
};

class QX_EXPORT Value {
 public:
  /// Null.
  Value() = default;
  // The constructors are implicit, so that a Value can be written as one of these.
  Value(bool v) : state_(v) {}
  Value(int v) : state_(std::int64_t{v}) {}
  Value(std::int64_t v) : state_(v) {}
  Value(std::uint64_t v) : state_(v) {}
  Value(double v) : state_(v) {}
  Value(const char* v) : state_(std::string(v)) {}
  Value(std::string_view v) : state_(std::string(v)) {}
  Value(std::string v) : state_(std::move(v)) {}
  Value(Data v) : state_(std::move(v)) {}
  Value(Date v) : state_(v) {}
  Value(Array v);
  Value(Dictionary v);
  Value(HostObject v) : state_(std::move(v)) {}
  /// A callback of the given signature. readCallback<Signature>() reads it.
  template <typename Signature>
  static Value callback(std::function<Signature> f) {
    return HostObject::of(std::move(f));
  }

  bool isNull() const { return state_.index() == 0; }
  // Each of these yields the content when the value has exactly that type, else null. A boolean is
  // not an integer, an integer is not a boolean, and a signed integer is not an unsigned one.
  const bool* asBool() const { return std::get_if<bool>(&state_); }
  const std::int64_t* asInt() const { return std::get_if<std::int64_t>(&state_); }
  const std::uint64_t* asUInt() const { return std::get_if<std::uint64_t>(&state_); }
  const double* asDouble() const { return std::get_if<double>(&state_); }
  const std::string* asText() const { return std::get_if<std::string>(&state_); }
  const Data* asData() const { return std::get_if<Data>(&state_); }
  const Date* asDate() const { return std::get_if<Date>(&state_); }
  const Array* asArray() const { return std::get_if<Array>(&state_); }
  const Dictionary* asDictionary() const { return std::get_if<Dictionary>(&state_); }
  const HostObject* asHostObject() const { return std::get_if<HostObject>(&state_); }

  friend QX_EXPORT bool operator==(const Value& a, const Value& b);

 private:
  std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Data, Date,
               Array, Dictionary, HostObject>
      state_;
};

// Each reader yields the value under `key` when it is present and has the expected type, else
// nothing.
QX_EXPORT std::optional<bool> readBool(const Dictionary& dictionary, std::string_view key);
/// Reads a signed 64-bit integer, or an unsigned one that fits into it.
QX_EXPORT std::optional<std::int64_t> readInt(const Dictionary& dictionary, std::string_view key);
QX_EXPORT std::optional<double> readDouble(const Dictionary& dictionary, std::string_view key);
QX_EXPORT std::optional<std::string> readText(const Dictionary& dictionary, std::string_view key);
QX_EXPORT std::optional<Data> readData(const Dictionary& dictionary, std::string_view key);
QX_EXPORT std::optional<Dictionary> readDictionary(const Dictionary& dictionary,
                                                   std::string_view key);
/// Reads a list whose elements are all texts.
QX_EXPORT std::optional<std::vector<std::string>> readTextList(const Dictionary& dictionary,
                                                               std::string_view key);
/// Reads a dictionary whose values are all texts.
QX_EXPORT std::optional<std::map<std::string, std::string>> readTextMap(
    const Dictionary& dictionary, std::string_view key);

/// Reads a callback of exactly this signature. An empty std::function counts as absent.
template <typename Signature>
std::optional<std::function<Signature>> readCallback(const Dictionary& dictionary,
                                                     std::string_view key) {
  const auto entry = dictionary.find(key);
  if (entry == dictionary.end()) return std::nullopt;
  const HostObject* object = entry->second.asHostObject();
  const auto* callback = object ? object->as<std::function<Signature>>() : nullptr;
  if (callback == nullptr || !*callback) return std::nullopt;
  return *callback;
}

}  // namespace qx
