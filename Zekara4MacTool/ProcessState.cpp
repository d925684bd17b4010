#include "Zekara4MacTool/ProcessState.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/NSProcess.h"

namespace zekara {
namespace {

// An ignored SIGPIPE or SIGXFSZ makes the write fail instead; the terminal's stops are not for a program that holds a lock.
void IgnoreSignals() noexcept {
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGTSTP, SIGTTIN, SIGTTOU}) {
    ::signal(signal, SIG_IGN);
  }
}

// Timers that the caller has set go on running through exec, and kill.
void StopTimers() noexcept {
  for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
    const itimerval off = {};
    setitimer(timer, &off, nullptr);
  }
}

// Otherwise the first file opened would be taken for standard input, output or error.
void OpenStandardDescriptors() noexcept {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) open("/dev/null", O_RDWR);  // takes the lowest free number
  }
}

// Raises the soft limit to `wanted`, and the hard limit with it where that is allowed.
void RaiseLimit(int resource, rlim_t wanted) noexcept {
  rlimit limit = {};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur >= wanted) return;  // RLIM_INFINITY is the highest value
  const rlimit raised = {.rlim_cur = wanted, .rlim_max = std::max(limit.rlim_max, wanted)};
  if (setrlimit(resource, &raised) == 0) return;
  limit.rlim_cur = std::min(limit.rlim_max, wanted);
  setrlimit(resource, &limit);
}

uid_t g_caller_user = 0;
gid_t g_caller_group = 0;
gid_t g_caller_effective_group = 0;
bool g_is_in_transaction = false;
bool g_has_borrowed_ids = false;
std::optional<AllSignalsBlocked> g_blocked;

}  // namespace

void PrepareProcess() noexcept {
  const bool isPrivileged = NSProcessIsPrivileged();
  IgnoreSignals();
  StopTimers();
  OpenStandardDescriptors();
  NSProcessCloseDescriptorsFrom(STDERR_FILENO + 1);
  RaiseLimit(RLIMIT_FSIZE, RLIM_INFINITY);
  RaiseLimit(RLIMIT_CPU, RLIM_INFINITY);
  RaiseLimit(RLIMIT_NOFILE, 256);
  RaiseLimit(RLIMIT_STACK, rlim_t{8} << 20);
  const rlimit none = {};
  setrlimit(RLIMIT_CORE, &none);
  if (isPrivileged) {
    NSProcessForbidTracing();
    NSProcessClearEnvironment();
  }
  NSLogSetProgramName("Zekara4MacTool");
}

// With the real ids at 0 too, no signal of the caller's reaches the process; setreuid() and setregid() set the real id alone
// when the effective one stays.
Transaction::Transaction() noexcept {
  g_is_in_transaction = true;
  RaiseLimit(RLIMIT_AS, RLIM_INFINITY);
  RaiseLimit(RLIMIT_DATA, RLIM_INFINITY);
  g_caller_user = getuid();
  if (geteuid() != 0 || g_caller_user == 0) return;
  g_caller_group = getgid();
  g_caller_effective_group = getegid();
  // Refused, the change is made all the same, only without this protection.
  g_has_borrowed_ids = setregid(0, 0) == 0 && setreuid(0, 0) == 0;
}

Transaction::~Transaction() {
  if (g_has_borrowed_ids) {
    // Refused, the process stays root for the rest of its life: a reply and the end.
    g_has_borrowed_ids = setregid(g_caller_group, g_caller_effective_group) != 0 || setreuid(g_caller_user, 0) != 0;
  }
  g_blocked.reset();
  g_is_in_transaction = false;
}

void Transaction::blockSignals() noexcept {
  if (g_is_in_transaction && !g_blocked) g_blocked.emplace();
}

}  // namespace zekara
