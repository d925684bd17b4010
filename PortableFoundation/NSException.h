#pragma once

#include <exception>
#include <string>
#include <utility>

namespace zekara {

// The names of the exceptions that this library raises itself.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* NSFileHandleOperationException = "NSFileHandleOperationException";

// A failure that the sender of a request can be told about. The name identifies the kind of failure to a
// program; the reason describes it to a person. Raised by `throw NSException(name, reason)` and caught by
// `catch (const NSException&)`.
//
// NSError is an unrelated type on purpose: a handler for NSException never catches one.
class NSException : public std::exception {
 public:
  NSException(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }

  // Returns the text that "%@" shows: the reason, or the name if the reason is empty.
  const std::string& description() const noexcept { return reason_.empty() ? name_ : reason_; }
  const char* what() const noexcept override { return description().c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace zekara
