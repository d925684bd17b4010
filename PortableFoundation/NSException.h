#pragma once

#include <exception>
#include <string>
#include <utility>

namespace zekara {

// Names that this library raises under.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* NSFileHandleOperationException = "NSFileHandleOperationException";

// A failure that a request can be told of: a name for programs, a reason for people. NSError is an unrelated
// type on purpose: a handler for NSException never sees one.
class NSException : public std::exception {
 public:
  NSException(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }

  // What "%@" shows: the reason, or the name when there is no reason.
  const std::string& description() const noexcept { return reason_.empty() ? name_ : reason_; }
  const char* what() const noexcept override { return description().c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

}  // namespace zekara
