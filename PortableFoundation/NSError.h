#pragma once

#include <exception>
#include <string>
#include <utility>

#include "PortableFoundation/Plist.h"

namespace zekara {

// A failure that only a program's outermost guard handles: a domain, a code within the domain, and a
// dictionary of details (or nil). It is thrown as an object of its own; a handler for NSException does not
// catch it.
//
//   throw NSError("xx", 123, Plist::dictionary({{"NSFileOwnerAccountID", 0}}));
//
// The function that throws documents domain, code and details; no other code need understand them. The domain
// is UTF-8 by convention and is not checked. References that the functions below return are valid as long as
// the error lives. A copy of an error shares its dictionary.
class NSError : public std::exception {
 public:
  // Takes domain and details over. Any code is allowed; `userInfo` must be a dictionary or nil.
  NSError(std::string domain, int code, Plist userInfo)
      : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

  // Returns the name of the part of the program that numbers the codes.
  const std::string& domain() const noexcept { return domain_; }
  // Returns the number of the failure. The same number means something else in another domain.
  int code() const noexcept { return code_; }
  // Returns the details, a dictionary or nil.
  const Plist& userInfo() const noexcept { return userInfo_; }
  // Returns the domain, because a handler that knows only std::exception cannot ask for more.
  const char* what() const noexcept override { return domain_.c_str(); }

 private:
  std::string domain_;
  int code_;
  Plist userInfo_;
};

}  // namespace zekara
