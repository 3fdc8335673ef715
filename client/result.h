// What a call returns: a value, or an error that names what failed.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace valmere::client {

enum class ErrorKind {
  kInvalid,         // the request can't be sent as it is
  kCannotConnect,   // no service is there
  kTimeout,         // the deadline passed
  kConnectionLost,  // the service ended the connection, or the link broke
  kProtocol,        // what came is no message
  kInterrupted,     // Interrupt was called, or a signal came while connecting
};

struct Error {
  ErrorKind kind;
  std::string text;
};

// Either a value or an error; asking for the one that is not there throws std::bad_variant_access.
template <typename Value>
class [[nodiscard]] Result {
 public:
  Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return content_.index() == 0; }
  explicit operator bool() const { return ok(); }
  Value& value() { return std::get<0>(content_); }
  const Value& value() const { return std::get<0>(content_); }
  Value& operator*() { return value(); }
  const Value& operator*() const { return value(); }
  Value* operator->() { return &value(); }
  const Value* operator->() const { return &value(); }
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<Value, Error> content_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : content_(std::move(error)) {}

  bool ok() const { return content_.index() == 0; }
  explicit operator bool() const { return ok(); }
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<std::monostate, Error> content_;
};

}  // namespace valmere::client
