#include "Zekara4MacTool/ProcessState.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

namespace zekara {
namespace {

// An ignored SIGPIPE or SIGXFSZ makes the write fail instead; the terminal's stops are not for a program that
// holds a lock.
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

// Otherwise the first file opened would be taken for standard input, output or error. Where there is no
// /dev/null, the root directory will do: it can be neither read nor written.
void OpenStandardDescriptors() noexcept {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    if (open("/dev/null", O_RDWR) < 0) open("/", O_RDONLY);  // each takes the lowest free number
  }
}

// Raises the soft limit to `wanted`, and the hard limit with it where that is allowed.
void RaiseLimit(int resource, rlim_t wanted) noexcept {
  rlimit limit = {};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur >= wanted)
    return;  // RLIM_INFINITY is the highest value
  const rlimit raised = {.rlim_cur = wanted, .rlim_max = std::max(limit.rlim_max, wanted)};
  if (setrlimit(resource, &raised) == 0) return;
  limit.rlim_cur = std::min(limit.rlim_max, wanted);
  setrlimit(resource, &limit);
}

Transaction* g_transaction = nullptr;

}  // namespace

void PrepareProcess() noexcept {
  const bool isPrivileged = NSProcessIsPrivileged();
  IgnoreSignals();
  StopTimers();
  RaiseLimit(RLIMIT_NOFILE, 256);  // before anything is opened
  OpenStandardDescriptors();
  NSProcessCloseDescriptorsFrom(STDERR_FILENO + 1);
  RaiseLimit(RLIMIT_FSIZE, RLIM_INFINITY);
  RaiseLimit(RLIMIT_CPU, RLIM_INFINITY);
  RaiseLimit(RLIMIT_STACK, rlim_t{8} << 20);
  const rlimit none = {};
  setrlimit(RLIMIT_CORE, &none);
  if (isPrivileged) {
    NSProcessRestorePriority();
    NSProcessForbidTracing();
    NSProcessClearEnvironment();
  }
  NSLogSetProgramName("Zekara4MacTool");
}

Transaction::Transaction() noexcept {
  g_transaction = this;
  RaiseLimit(RLIMIT_AS, RLIM_INFINITY);
  RaiseLimit(RLIMIT_DATA, RLIM_INFINITY);
}

Transaction::~Transaction() {
  g_transaction = nullptr;
}

void Transaction::blockSignals() noexcept {
  if (g_transaction != nullptr && !g_transaction->blocked_) g_transaction->blocked_.emplace();
}

}  // namespace zekara
