#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace zekara {

// How zkaconfig ends; zkaconfig(1) lists these for its callers.
enum class ExitStatus : int {
  Done = 0,
  Differs = 1,     // the setting is unset, or there are differences
  Usage = 2,       // the command line, or a setting asked for, is not acceptable
  Unreadable = 3,  // a file could not be read, or the output not be written
  Refused = 4,     // the tool answered that it has not made the change
  NoAnswer = 5,    // the tool could not be started, or gave no answer in time
};

// Ends the program: what failed, for people, and what they can do about it (may be empty).
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& what, std::string advice = {})
      : std::runtime_error(what), status_(status), advice_(std::move(advice)) {}

  ExitStatus status() const noexcept { return status_; }
  const std::string& advice() const noexcept { return advice_; }

 private:
  ExitStatus status_;
  std::string advice_;
};

}  // namespace zekara
