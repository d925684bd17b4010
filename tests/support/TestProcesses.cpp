#include "tests/support/TestProcesses.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace zekara {
namespace {

bool WriteTo(const char* path, std::string_view text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool isWritten =
      file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (file >= 0) close(file);
  return isWritten;
}

// With the rights to mount in it: as root, or as what looks like root in a user namespace.
bool EnterMountNamespace() {
  if (unshare(CLONE_NEWNS) == 0) return true;
  const std::string uidMap = "0 " + std::to_string(geteuid()) + " 1";
  const std::string gidMap = "0 " + std::to_string(getegid()) + " 1";
  return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && WriteTo("/proc/self/setgroups", "deny") &&
         WriteTo("/proc/self/uid_map", uidMap) && WriteTo("/proc/self/gid_map", gidMap);
}

}  // namespace

WaitingChild::WaitingChild() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all,
              &before);  // before the child exists: it must not die of a signal that comes early
  pid_ = fork();
  if (pid_ == 0) {
    int signal = 0;
    sigwait(&all, &signal);
    _exit(signal);
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  if (pid_ < 0) throw std::runtime_error("cannot fork");
}

WaitingChild::~WaitingChild() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

// The lowest pending signal is delivered first, so the real-time signal that ends the wait hides no other.
int WaitingChild::takeSignal() {
  if (pid_ <= 0) throw std::logic_error("the child has ended already");  // -1 would be every process
  const int last = SIGRTMAX - 1;  // valgrind keeps the very last one for itself
  kill(pid_, last);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  if (!WIFEXITED(status)) return -1;
  return WEXITSTATUS(status) == last ? 0 : WEXITSTATUS(status);
}

pid_t ExitedProcess() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  if (pid < 0) throw std::runtime_error("cannot fork");
  waitpid(pid, nullptr, 0);
  return pid;
}

std::string EnterPrivateVar() {
  static bool hasEntered = false;
  if (hasEntered) {
    umount2("/var", MNT_DETACH);
  } else if (!EnterMountNamespace() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return std::string("no private mount namespace can be had: ") + std::strerror(errno);
  }
  hasEntered = true;
  if (mount("tmpfs", "/var", "tmpfs", 0, "mode=0755") == 0) return {};
  return std::string("cannot mount on /var: ") + std::strerror(errno);
}

}  // namespace zekara
