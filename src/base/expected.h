// The answer of a step whose failure its caller expects and handles itself (a commit the
// database rolled back, a file that cannot be read): the value, or the RuntimeError that says
// why there is none. A caller that cannot handle the failure calls value(), which throws it.
//
// Steps whose failure their caller cannot handle throw RuntimeError at once; procedures whose
// contract answers a sentinel (False, "", Nothing) keep it.
#pragma once

#include <optional>
#include <utility>
#include <variant>

#include "base/error.h"

namespace dossync {

template <class T>
class [[nodiscard]] Expected {
 public:
  Expected(T value) : v_(std::in_place_index<0>, std::move(value)) {}
  Expected(RuntimeError error) : v_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return v_.index() == 0; }
  explicit operator bool() const { return ok(); }
  T& value() & {
    if (!ok()) throw error();
    return std::get<0>(v_);
  }
  T&& value() && {
    if (!ok()) throw error();
    return std::get<0>(std::move(v_));
  }
  const RuntimeError& error() const { return std::get<1>(v_); }

 private:
  std::variant<T, RuntimeError> v_;
};

// A step that answers nothing but may fail.
template <>
class [[nodiscard]] Expected<void> {
 public:
  Expected() = default;
  Expected(RuntimeError error) : error_(std::move(error)) {}

  bool ok() const { return !error_; }
  explicit operator bool() const { return ok(); }
  void value() const {
    if (error_) throw *error_;
  }
  const RuntimeError& error() const { return *error_; }

 private:
  std::optional<RuntimeError> error_;
};

}  // namespace dossync
