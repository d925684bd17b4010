#include "tests/support/Processes.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

#include "PortableFoundation/Process.h"

#ifdef __APPLE__
#include <libproc.h>
#include <mach/thread_info.h>
#endif

#ifdef ZEKARA_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace zekara::test {
namespace {

// _exit() runs no handlers, so what gtest has printed and the counters of a coverage build are written here.
// What `body` throws must not reach gtest, which would go on with the other tests in the child.
[[noreturn]] void RunAndExit(const std::function<int()>& body) noexcept {
  signal(SIGALRM, SIG_DFL);
  alarm(kPatienceSeconds);
  const int status = body();
  std::fflush(nullptr);
#ifdef ZEKARA_COVERAGE
  __gcov_dump();
#endif
  _exit(status);
}

// Returns false if the process sleeps in a system call, or has ended.
#ifdef __APPLE__
bool IsRunning(pid_t process) {
  std::uint64_t thread = 0;
  proc_threadinfo info = {};
  return proc_pidinfo(process, PROC_PIDLISTTHREADS, 0, &thread, sizeof thread) > 0 &&
         proc_pidinfo(process, PROC_PIDTHREADINFO, thread, &info, sizeof info) > 0 &&
         info.pth_run_state != TH_STATE_WAITING;
}
#else
// Opened before any test changes its root directory.
const Descriptor g_proc(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));

// The state follows the program's name, which is between parentheses and may hold any character.
bool IsRunning(pid_t process) {
  const Descriptor file = OpenAt(g_proc.get(), (std::to_string(process) + "/stat").c_str(), O_RDONLY);
  const std::string status = ReadToEnd(file.get());
  const std::size_t end = status.rfind(')');
  return end != std::string::npos && status[end + 2] != 'S' && status[end + 2] != 'Z';
}
#endif

volatile sig_atomic_t g_was_interrupted = 0;

}  // namespace

pid_t StartChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) std::abort();  // kill() takes -1 for every process
  if (child == 0) RunAndExit(body);
  return child;
}

pid_t StartInterruptedChild(const std::function<int()>& body) {
  struct sigaction action = {};
  action.sa_handler = [](int) { g_was_interrupted = 1; };  // without SA_RESTART
  sigaction(SIGUSR1, &action, nullptr);
  const pid_t child = StartChild([&] {
    const int status = body();
    return status == 0 && g_was_interrupted == 0 ? 98 : status;
  });
  for (int i = 0; i < 20; ++i) {
    WaitUntilAsleep(child);
    kill(child, SIGUSR1);
  }
  WaitUntilAsleep(child);
  return child;
}

int WaitForChild(pid_t child) {
  int status = 0;
  if (RetryOnInterrupt([&] { return waitpid(child, &status, 0); }) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void RunInChild(const std::function<void()>& body) {
  const pid_t child = StartChild([&] {
    body();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(WaitForChild(child), 0) << "this is how the child ended";
}

void WaitUntilAsleep(pid_t process) {
  while (IsRunning(process)) usleep(1000);
}

bool BorrowRootsRights() {
  return setregid(kOtherUser, 0) == 0 && setreuid(kOtherUser, 0) == 0;
}

bool BecomeOtherUser() {
  return setgid(kOtherUser) == 0 && setuid(kOtherUser) == 0;
}

bool MayRaisePriority() {
  const pid_t child = StartChild(
      [] { return setpriority(PRIO_PROCESS, 0, 15) == 0 && setpriority(PRIO_PROCESS, 0, 0) == 0 ? 0 : 1; });
  return WaitForChild(child) == 0;
}

StandIn::StandIn(const char* pidFile) {
  const AllSignalsBlocked all;  // in the child, too, which a signal may reach at once
  pid_ = StartChild([this] {
    question_.input.reset();
    char byte = 0;
    sigset_t pending;
    if (ReadSome(question_.output.get(), &byte, 1) != 1 || sigpending(&pending) != 0) return 1;
    return write(answer_.input.get(), &pending, sizeof pending) == ssize_t{sizeof pending} ? 0 : 1;
  });
  if (pidFile != nullptr) WriteFile(pidFile, pidText() + "\n");
}

StandIn::~StandIn() {
  kill(pid_, SIGKILL);
  WaitForChild(pid_);
}

std::set<int> StandIn::signals() {
  sigset_t pending;
  if (WriteAll(question_.input.get(), "?") != 0 ||
      read(answer_.output.get(), &pending, sizeof pending) != ssize_t{sizeof pending}) {
    return {-1};
  }
  std::set<int> found;
  for (int signal = 1; signal < 32; ++signal) {
    if (sigismember(&pending, signal) == 1) found.insert(signal);
  }
  return found;
}

}  // namespace zekara::test
