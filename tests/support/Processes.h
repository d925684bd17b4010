#pragma once

// The children of a test, and the IDs under which they run.

#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>

#include "tests/support/Files.h"

namespace zekara::test {

// Far beyond what a child needs on a busy machine. A child that still lives then hangs, and is killed.
inline constexpr unsigned kPatienceSeconds = 600;

// Starts a child that runs `body` and exits with the status that it returns, or with 99 if it throws.
pid_t StartChild(const std::function<int()>& body);

// Waits until the child has ended. Returns its exit status, 128 plus the signal that ended it, or -1 if it is
// not a child of this process.
int WaitForChild(pid_t child);

// Runs `body`, which may use EXPECT_... and ASSERT_... as a test does, in a child. The test fails if the
// child does.
void RunInChild(const std::function<void()>& body);

// Waits until the process sleeps in a system call, or has ended.
void WaitUntilAsleep(pid_t process);

// The user and group that tests take for one without rights.
inline constexpr uid_t kOtherUser = 65534;

inline bool IsRoot() {
  return geteuid() == 0;
}

// Gives this process the IDs of a set-user-ID-root program that kOtherUser has started. Returns false if it
// may not have them.
bool BorrowRootsRights();

// Gives root's rights up for good. Returns false if it cannot.
bool BecomeOtherUser();

// Returns true if a process like this one may raise its priority after lowering it.
bool MayRaisePriority();

// From now on, SIGUSR1 interrupts the system calls of this process and of the children that it starts, and
// has no other effect.
void AllowInterruption();
// Interrupts such a process twenty times, each time while it sleeps in a system call.
void Interrupt(pid_t process);
// Returns true if this process has been interrupted.
bool HasBeenInterrupted();

// A child that stands in for a daemon: it remembers the signals that it receives, and none but SIGALRM
// affects it. The destructor kills it.
class StandIn {
 public:
  // Writes the child's ID to `pidFile`, unless that is null.
  explicit StandIn(const char* pidFile = nullptr);
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  ~StandIn();

  pid_t pid() const noexcept { return pid_; }
  std::string pidText() const { return std::to_string(pid_); }

  // Returns the signals received so far and ends the child, so it can be asked once.
  std::set<int> signals();

 private:
  Pipe question_;
  Pipe answer_;
  pid_t pid_ = -1;
};

}  // namespace zekara::test
