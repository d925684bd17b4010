// Runs a command under the conditions in which root works inside a container that was started without
// options:
//
//   default-container COMMAND ARGUMENT...
//
// The bounding set of capabilities shrinks to the fourteen that such a container has. A system-call filter
// refuses mount, umount2, pivot_root, setns, unshare and a clone that asks for a namespace with EPERM, and
// clone3 with ENOSYS, as if the kernel were too old for it. The filter is installed by right (CAP_SYS_ADMIN)
// and not through no_new_privs, so set-user-ID programs still get their owner's rights. All of this holds for
// every process that the command starts.
//
// Needs root. Exits as the command does, with 125 if the conditions cannot be made and with 127 if the
// command cannot be started.

#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>

namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "the filter does not know this processor's system calls"
#endif

constexpr std::array kCapabilities = {
    CAP_CHOWN,   CAP_DAC_OVERRIDE,     CAP_FOWNER,  CAP_FSETID,     CAP_KILL,  CAP_SETGID,      CAP_SETUID,
    CAP_SETPCAP, CAP_NET_BIND_SERVICE, CAP_NET_RAW, CAP_SYS_CHROOT, CAP_MKNOD, CAP_AUDIT_WRITE, CAP_SETFCAP};

constexpr std::uint32_t kNewNamespace =
    CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET;

constexpr sock_filter Load(std::size_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

constexpr sock_filter Allow() {
  return BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
}

constexpr sock_filter Refuse(std::uint32_t error) {
  return BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error);
}

// Skips `count` instructions unless the loaded value is the given one.
constexpr sock_filter IfEqual(std::uint32_t value, std::uint8_t count = 1) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, count);
}

// Skips the next instruction unless the loaded value has one of the bits.
constexpr sock_filter IfAnyBit(std::uint32_t bits) {
  return BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, bits, 0, 1);
}

// The flags of clone are in the lower half of its first argument, which comes first: both processors are
// little-endian.
bool InstallFilter() {
  std::array filter = {
      Load(offsetof(seccomp_data, arch)),
      IfEqual(kArchitecture, 17),
      Load(offsetof(seccomp_data, nr)),
      IfEqual(SYS_mount),
      Refuse(EPERM),
      IfEqual(SYS_umount2),
      Refuse(EPERM),
      IfEqual(SYS_pivot_root),
      Refuse(EPERM),
      IfEqual(SYS_setns),
      Refuse(EPERM),
      IfEqual(SYS_unshare),
      Refuse(EPERM),
      IfEqual(SYS_clone3),
      Refuse(ENOSYS),
      IfEqual(SYS_clone, 3),
      Load(offsetof(seccomp_data, args)),
      IfAnyBit(kNewNamespace),
      Refuse(EPERM),
      Allow(),
  };
  const sock_fprog program = {.len = static_cast<unsigned short>(filter.size()), .filter = filter.data()};
  return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0U, &program) == 0;
}

// A capability that is not in the bounding set is lost when the command is started, because the kernel
// computes root's capabilities again then.
bool DropCapabilities() {
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    const bool isKept =
        std::find(kCapabilities.begin(), kCapabilities.end(), capability) != kCapabilities.end();
    if (!isKept && prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) return false;
  }
  return prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) == 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc < 2) {
    std::fprintf(stderr, "Usage: %s COMMAND ARGUMENT...\n", argv[0]);
    return 125;
  }
  if (!InstallFilter() || !DropCapabilities()) {
    std::perror("default-container: needs root with every capability");
    return 125;
  }
  execvp(argv[1], argv + 1);
  std::perror(argv[1]);
  return 127;
}
