#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace zekara {

// How zkaconfig ends. Scripts depend on the numbers, which zkaconfig(1) lists.
enum class ExitStatus : int {
  Done = 0,
  Differs = 1,     // the setting is unset, or there are differences
  Usage = 2,       // the command line, or a setting asked for, is not acceptable
  Unreadable = 3,  // a file could not be read, or the output not be written
  Refused = 4,     // the tool answered that it has not made the change
  NoAnswer = 5,    // the tool could not be started, or gave no answer in time
};

// Ends the program. main() writes `what`, which says what failed, and `advice`, which says what a person can
// do about it, to standard error on a line each, and exits with the status:
//
//   throw Failure(ExitStatus::Usage, "no section given", "Settings are given as SECTION KEY=VALUE.");
//
// Both texts are shown on terminals, so the thrower has made foreign parts of them printable (Printable()).
// The advice may be empty.
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& what, std::string advice = {})
      : std::runtime_error(what), status_(status), advice_(std::move(advice)) {}

  // Returns what the program exits with.
  ExitStatus status() const noexcept { return status_; }
  // Returns what a person can do; what() is inherited. The reference is valid as long as the failure lives.
  const std::string& advice() const noexcept { return advice_; }

 private:
  ExitStatus status_;
  std::string advice_;
};

}  // namespace zekara
