// Starts a program and makes its system calls transfer fewer bytes than it asks for:
//
//   SecurityShortCounts read|write COUNT UID GID PROGRAM ARGV0 ARGUMENT...
//
// Every call of the kind transfers at most COUNT bytes, as the kernel may do at any time. UID and GID are the
// caller's. Set-user-ID programs keep their rights, because root traces them. Exits with the program's
// status.

#include <elf.h>
#include <grp.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

#if defined(__x86_64__)
long CallNumber(const user_regs_struct& registers) {
  return static_cast<long>(registers.orig_rax);
}
unsigned long long& Count(user_regs_struct& registers) {
  return registers.rdx;
}
#elif defined(__aarch64__)
long CallNumber(const user_regs_struct& registers) {
  return static_cast<long>(registers.regs[8]);
}
unsigned long long& Count(user_regs_struct& registers) {
  return registers.regs[2];
}
#else
#error "the registers of a system call are not known for this processor"
#endif

void Shorten(pid_t process, long call, unsigned long long count) {
  user_regs_struct registers = {};
  iovec area = {&registers, sizeof registers};
  if (ptrace(PTRACE_GETREGSET, process, NT_PRSTATUS, &area) != 0) std::exit(123);
  if (CallNumber(registers) != call || Count(registers) <= count) return;
  Count(registers) = count;
  if (ptrace(PTRACE_SETREGSET, process, NT_PRSTATUS, &area) != 0) std::exit(123);
}

[[noreturn]] void Start(char* argv[]) {
  const auto user = static_cast<uid_t>(std::strtoul(argv[3], nullptr, 10));
  const auto group = static_cast<gid_t>(std::strtoul(argv[4], nullptr, 10));
  // As root, because the kernel looks at the tracer's rights.
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(127);
  if (setgroups(0, nullptr) != 0 || setresgid(group, group, group) != 0) _exit(127);
  if (setresuid(user, user, user) != 0) _exit(127);
  execv(argv[5], argv + 6);
  _exit(124);
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 7) return 125;
  const long call = std::strcmp(argv[1], "read") == 0 ? SYS_read : SYS_write;
  const unsigned long long count = std::strtoull(argv[2], nullptr, 10);
  const pid_t process = fork();
  if (process == 0) Start(argv);
  int status = 0;
  bool isEntering = false;
  if (waitpid(process, &status, 0) != process || !WIFSTOPPED(status)) return 123;
  ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  for (int signal = 0;;) {
    ptrace(PTRACE_SYSCALL, process, nullptr, signal);
    if (waitpid(process, &status, 0) != process) return 123;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    signal = 0;
    if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
      isEntering = !isEntering;
      if (isEntering) Shorten(process, call, count);
    } else {
      signal = WSTOPSIG(status);
    }
  }
}
