#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace zekara {

// How zkaconfig ends. Scripts depend on the numbers, which zkaconfig(1) lists. A command returns the first
// two and raises Failure with the others.
enum class ExitStatus : int {
  // The command did what it was asked to do, even if there was nothing to change.
  Done = 0,
  // The section or key is unset, or "diff" has found a difference. This is an answer and not an error.
  Differs = 1,
  // The command line, or a setting asked for, is not acceptable. The tool has not been started.
  Usage = 2,
  // A file could not be read, or the output could not be written.
  Unreadable = 3,
  // The tool answered that it has not made the change.
  Refused = 4,
  // The tool could not be started, or gave no answer in time. It may still make the change later.
  NoAnswer = 5,
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
