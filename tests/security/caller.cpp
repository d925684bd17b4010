// Becomes an unprivileged caller and starts a program, with as few system calls of its own as can be:
//
//   SecurityCaller UID GID [--terminal | --alarm] PROGRAM ARGV0 ARGUMENT...
//
// --terminal makes standard error, which must be a terminal, the controlling terminal of a new session first. --alarm leaves a
// timer behind that rings after 0.6 seconds and then ten times a second.

#include <grp.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

int main(int argc, char* argv[]) {
  if (argc < 5) return 125;
  const auto user = static_cast<uid_t>(std::strtoul(argv[1], nullptr, 10));
  const auto group = static_cast<gid_t>(std::strtoul(argv[2], nullptr, 10));
  char** rest = argv + 3;
  if (std::strcmp(*rest, "--terminal") == 0) {
    if (setsid() < 0 || ioctl(STDERR_FILENO, TIOCSCTTY, 0) != 0) return 126;
    ++rest;
  } else if (std::strcmp(*rest, "--alarm") == 0) {
    const itimerval timer = {.it_interval = {.tv_sec = 0, .tv_usec = 100'000},
                             .it_value = {.tv_sec = 0, .tv_usec = 600'000}};
    if (setitimer(ITIMER_REAL, &timer, nullptr) != 0) return 126;
    ++rest;
  }
  if (setgroups(0, nullptr) != 0 || setresgid(group, group, group) != 0) return 127;
  if (setresuid(user, user, user) != 0) return 127;
  execv(rest[0], rest + 1);
  return 124;
}
