#pragma once

#include <sys/types.h>

#include <string>

namespace zekara {

// A child process that waits for a signal, with every signal blocked. It is killed at the end.
class WaitingChild {
 public:
  WaitingChild();
  WaitingChild(const WaitingChild&) = delete;
  WaitingChild& operator=(const WaitingChild&) = delete;
  ~WaitingChild();

  pid_t pid() const noexcept { return pid_; }
  std::string pidText() const { return std::to_string(pid_); }

  // The signal that the child has got so far, the lowest if there are several; 0 for none. Ends the child.
  int takeSignal();

 private:
  pid_t pid_;
};

// The id of a process that has been and is no more.
pid_t ExitedProcess();

// Moves this process into a mount namespace of its own, in which /var is empty and may be filled. Returns why
// that cannot be had, or an empty text. Once it has been entered, every later call empties /var anew.
std::string EnterPrivateVar();

}  // namespace zekara
