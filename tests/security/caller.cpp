// Becomes an unprivileged caller and starts a program, with as few system calls of its own as possible:
//
//   SecurityCaller UID GID [--root DIRECTORY] [--terminal | --alarm SECONDS | --measure] PROGRAM ARGV0
//   ARGUMENT...
//
// --root changes the root directory first, so PROGRAM is a path in it. --terminal makes standard error, which
// must be a terminal, the controlling terminal of a new session. --alarm leaves a timer that fires after so
// many seconds and then ten times a second. --measure waits until the program ends, writes its peak memory in
// kilobytes to descriptor 9, which the program does not inherit, and exits with the program's status.

#include <grp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kReport = 9;

int Measure(pid_t process) {
  int status = 0;
  rusage usage = {};
  if (wait4(process, &status, 0, &usage) != process) return 123;
  dprintf(kReport, "%ld\n", usage.ru_maxrss);
  if (WIFSIGNALED(status)) kill(getpid(), WTERMSIG(status));
  return WEXITSTATUS(status);
}

bool SetAlarm(const char* seconds) {
  const auto microseconds = static_cast<long>(std::strtod(seconds, nullptr) * 1e6);
  const itimerval timer = {
      .it_interval = {.tv_sec = 0, .tv_usec = 100'000},
      .it_value = {.tv_sec = microseconds / 1'000'000, .tv_usec = microseconds % 1'000'000}};
  return setitimer(ITIMER_REAL, &timer, nullptr) == 0;
}

// Carries out one option other than --measure and advances to the next argument.
bool Prepare(char**& rest) {
  const char* option = *rest++;
  if (std::strcmp(option, "--terminal") == 0) return setsid() >= 0 && ioctl(STDERR_FILENO, TIOCSCTTY, 0) == 0;
  if (std::strcmp(option, "--alarm") == 0) return SetAlarm(*rest++);
  return std::strcmp(option, "--root") == 0 && chroot(*rest++) == 0 && chdir("/") == 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 5) return 125;
  const auto user = static_cast<uid_t>(std::strtoul(argv[1], nullptr, 10));
  const auto group = static_cast<gid_t>(std::strtoul(argv[2], nullptr, 10));
  char** rest = argv + 3;
  while (*rest != nullptr && **rest == '-') {
    if (std::strcmp(*rest, "--measure") != 0) {
      if (!Prepare(rest)) return 126;
      continue;
    }
    ++rest;
    if (const pid_t process = fork(); process != 0) return Measure(process);
    close(kReport);
  }
  if (setgroups(0, nullptr) != 0 || setresgid(group, group, group) != 0) return 127;
  if (setresuid(user, user, user) != 0) return 127;
  execv(rest[0], rest + 1);
  return 124;
}
