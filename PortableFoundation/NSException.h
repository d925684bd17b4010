#pragma once

#include <exception>
#include <string>
#include <utility>

namespace zekara {

// The names of the exceptions that this library raises itself. An invalid argument is a value of the wrong
// kind, nil where a value is needed, a value nested too deeply, or an unmodifiable object that is to be
// changed. A file handle's operation fails if the handle is closed, if a read is armed already, or if the
// system reports an error. Other code raises exceptions with names of its own.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* NSFileHandleOperationException = "NSFileHandleOperationException";

// A failure that is reported to the sender of a request. The name identifies the kind of failure to a
// program; the reason describes it to a person. Raised by `throw NSException(name, reason)` and caught by
// `catch (const NSException&)`.
//
// Both are UTF-8 by convention and are not checked. To distinguish failures, compare the names: the reason
// may contain keys and the system's error. References that the functions return are valid as long as the
// exception lives.
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
