#include "Zekara4MacTool/ProcessState.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

namespace zekara {
namespace {

// With SIGPIPE or SIGXFSZ ignored, the write fails instead of ending the process. The terminal must not stop
// a program that holds a lock.
void IgnoreSignals() noexcept {
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGTSTP, SIGTTIN, SIGTTOU}) {
    ::signal(signal, SIG_IGN);
  }
}

// Interval timers survive exec, so the caller could have one end the process.
void StopTimers() noexcept {
  for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
    const itimerval off = {};
    setitimer(timer, &off, nullptr);
  }
}

constexpr rlim_t kStackSize = rlim_t{8} << 20;

// Raises the soft limit of a resource to `wanted`, and the hard limit with it; if that is not allowed, raises
// the soft limit to the hard one. Returns the limit that it found, or nothing if the system will not read it.
// RLIM_INFINITY is the highest value. macOS refuses to change the stack limit of a program whose linker has
// fixed the size of its stack.
std::optional<rlimit> RaiseLimit(int resource, rlim_t wanted) noexcept {
  rlimit found = {};
  if (getrlimit(resource, &found) != 0) return {};
  if (found.rlim_cur >= wanted) return found;
  const rlimit raised = {.rlim_cur = wanted, .rlim_max = std::max(found.rlim_max, wanted)};
  const rlimit highest = {.rlim_cur = std::min(found.rlim_max, wanted), .rlim_max = found.rlim_max};
  if (setrlimit(resource, &raised) != 0) setrlimit(resource, &highest);
  return found;
}

// Touches all the stack that the program can need (256 KiB), so that too small a stack ends the process here
// and not between truncating the file and writing it.
[[gnu::noinline]] void ProveStack() noexcept {
  constexpr std::size_t kPage = 4096;
  volatile char proof[64 * kPage];
  for (std::size_t place = sizeof proof; place >= kPage; place -= kPage) proof[place - 1] = 0;
}

}  // namespace

// The order matters: a limit on descriptors could keep the standard ones from being opened, and they must be
// open before anything else is. What the kernel and the C library do for a set-user-ID program they do not do
// when root starts it, so the standard descriptors are opened in any case.
void PrepareProcess() noexcept {
  const bool isPrivileged = ProcessIsPrivileged();
  IgnoreSignals();
  StopTimers();
  RaiseLimit(RLIMIT_NOFILE, 256);  // before anything is opened
  OpenStandardDescriptors();
  CloseDescriptorsFrom(STDERR_FILENO + 1);
  RaiseLimit(RLIMIT_FSIZE, RLIM_INFINITY);
  RaiseLimit(RLIMIT_CPU, RLIM_INFINITY);
  RaiseLimit(RLIMIT_STACK, kStackSize);
  const rlimit none = {};
  setrlimit(RLIMIT_CORE, &none);  // while its IDs change, the process may be dumpable for a moment
  if (isPrivileged) {
    RestoreDefaultPriority();
    ForbidTracing();
    ClearEnvironment();
  }
  SetLogProgramName("Zekara4MacTool");
}

RaisedLimit::RaisedLimit(int resource) noexcept
    : resource_(resource), found_(RaiseLimit(resource, RLIM_INFINITY)) {}

RaisedLimit::~RaisedLimit() {
  if (found_ && wasLimited()) setrlimit(resource_, &*found_);
}

Transaction::Transaction() noexcept : addressSpace_(RLIMIT_AS), data_(RLIMIT_DATA) {
  const auto stack = RaiseLimit(RLIMIT_STACK, kStackSize);
  const bool hasStack = stack && stack->rlim_cur >= kStackSize;
  if (addressSpace_.wasLimited() || data_.wasLimited() || !hasStack) ProveStack();
}

}  // namespace zekara
