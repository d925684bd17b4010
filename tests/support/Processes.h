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

// Starts a child that runs `body` and exits with the status that it returns. An exception ends the child with
// SIGABRT, and a message on standard error says what it was.
pid_t StartChild(const std::function<int()>& body);

// Starts such a child and sends it SIGUSR1 twenty times, each time while it sleeps in a system call. The
// signal interrupts the call and has no other effect, then and later. Returns when the child sleeps again, or
// has ended. The child exits with 98 if `body` returns 0 although no signal has arrived.
pid_t StartInterruptedChild(const std::function<int()>& body);

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

// A child that plays a daemon. It blocks all signals and remembers which ones it has received. It ends when
// this process ends, at the latest; the destructor kills it.
class StandIn {
 public:
  // Writes the child's ID to `pidFile`, unless that is null.
  explicit StandIn(const char* pidFile = nullptr);
  ~StandIn();

  pid_t pid() const noexcept { return pid_; }
  std::string pidText() const { return std::to_string(pid_); }

  // Returns the signals received so far and ends the child, so a test can ask once. Returns {-1} if the child
  // gives no answer.
  std::set<int> signals();

 private:
  Pipe question_;
  Pipe answer_;
  pid_t pid_ = -1;
};

}  // namespace zekara::test
