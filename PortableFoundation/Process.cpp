#include "PortableFoundation/Process.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#ifdef __APPLE__
#include <libproc.h>
#else
#include <sched.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX has the program declare it

namespace zekara {
namespace {

// Fallback when descriptors can be neither closed as a range nor listed. Ignores RLIMIT_NOFILE, which may
// have been lowered since they were opened.
void CloseDescriptorsOneByOne(int first) noexcept {
  constexpr int kHighest = 1 << 20;
  for (int descriptor = first; descriptor < kHighest; ++descriptor) close(descriptor);
}

// An installer that withdraws a program removes its name and every right to execute it. Looking at
// the name alone would not do, because a user may have given the file another one: macOS lets users link
// files of other accounts.
bool IsWithdrawn(const struct stat& file) noexcept {
  constexpr mode_t kExecutable = S_IXUSR | S_IXGRP | S_IXOTH;
  return file.st_nlink == 0 || (file.st_mode & kExecutable) == 0;
}

}  // namespace

#ifdef __APPLE__

bool ProcessIsPrivileged() noexcept {
  return issetugid() != 0 || getuid() != geteuid() || getgid() != getegid();
}

// Asks the kernel which file is mapped here, and uses its path only if device and inode still match.
Descriptor OpenRunningExecutable() noexcept {
  proc_regionwithpathinfo region = {};
  const auto address = reinterpret_cast<std::uint64_t>(&OpenRunningExecutable);
  const int size = proc_pidinfo(getpid(), PROC_PIDREGIONPATHINFO, address, &region, sizeof region);
  if (size != static_cast<int>(sizeof region)) return Descriptor();
  Descriptor file = OpenAt(AT_FDCWD, region.prp_vip.vip_path, O_RDONLY | O_NONBLOCK);
  const vinfo_stat& mapped = region.prp_vip.vip_vi.vi_stat;
  struct stat opened = {};
  const bool isMapped = Examine(file, opened) && opened.st_ino == mapped.vst_ino &&
                        static_cast<std::uint32_t>(opened.st_dev) == mapped.vst_dev;
  return isMapped ? std::move(file) : Descriptor();
}

void ForbidTracing() noexcept {}  // macOS lets no user trace a set-user-ID process

// The kernel lists at most as many descriptors as the array holds, so the list is fetched again until there
// is nothing left to close.
void CloseDescriptorsFrom(int first) noexcept {
  for (;;) {
    proc_fdinfo open[256];
    const int size = proc_pidinfo(getpid(), PROC_PIDLISTFDS, 0, open, static_cast<int>(sizeof open));
    if (size <= 0) return CloseDescriptorsOneByOne(first);
    bool hasClosed = false;
    for (const proc_fdinfo& one : std::span(open).first(static_cast<std::size_t>(size) / sizeof *open)) {
      if (one.proc_fd >= first && close(one.proc_fd) == 0) hasClosed = true;
    }
    if (!hasClosed) return;
  }
}

// The background state and the disk policy are apart from the nice value, and exec hands them down. What a
// parent imposes from outside (a QoS clamp) cannot be undone.
void RestoreDefaultPriority() noexcept {
  setpriority(PRIO_PROCESS, 0, 0);
  setpriority(PRIO_DARWIN_PROCESS, 0, 0);
  setiopolicy_np(IOPOL_TYPE_DISK, IOPOL_SCOPE_PROCESS, IOPOL_DEFAULT);
}

#else

bool ProcessIsPrivileged() noexcept {
  return getauxval(AT_SECURE) != 0 || getuid() != geteuid() || getgid() != getegid();
}

Descriptor OpenRunningExecutable() noexcept {
  return OpenAt(AT_FDCWD, "/proc/self/exe", O_RDONLY);
}

void ForbidTracing() noexcept {
  prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
}

void CloseDescriptorsFrom(int first) noexcept {
  if (close_range(static_cast<unsigned>(first), ~0U, 0) == 0) return;
  CloseDescriptorsOneByOne(first);  // where a container's filter of system calls refuses it
}

void RestoreDefaultPriority() noexcept {
  constexpr sched_param kNone = {};
  sched_setscheduler(0, SCHED_OTHER, &kNone);
  setpriority(PRIO_PROCESS, 0, 0);
  constexpr int kThisProcess = 1;
  syscall(SYS_ioprio_set, kThisProcess, 0, 0);  // as the processor priority says
}

#endif

Descriptor OpenRunningExecutableNamed(const char* path) noexcept {
  Descriptor running = OpenRunningExecutable();
  struct stat named = {};
  struct stat opened = {};
  const bool isSame =
      Examine(running, opened) && !IsWithdrawn(opened) && Examine(path, named) && IsSameFile(named, opened);
  return isSame ? std::move(running) : Descriptor();
}

// Each open() takes the lowest free number. Without a /dev/null the root directory serves: it can be neither
// read nor written.
void OpenStandardDescriptors() noexcept {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    const int mode = descriptor == STDOUT_FILENO ? O_RDONLY : O_RDWR;
    if (open("/dev/null", mode) < 0) open("/", O_RDONLY);
  }
}

std::uint64_t FileSizeLimit() noexcept {
  rlimit limit = {};
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 ? limit.rlim_cur : std::numeric_limits<std::uint64_t>::max();
}

std::uint64_t CpuTimeLeft() noexcept {
  rlimit limit = {};
  rusage used = {};
  if (getrlimit(RLIMIT_CPU, &limit) != 0 || limit.rlim_max == RLIM_INFINITY ||
      getrusage(RUSAGE_SELF, &used) != 0) {
    return std::numeric_limits<std::uint64_t>::max();
  }
  const auto spent = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec + 2);
  return limit.rlim_max - std::min(limit.rlim_max, spent);
}

// The C library on Linux keeps the signals 32 and 33 for itself and never blocks them; only root can send
// them here.
AllSignalsBlocked::AllSignalsBlocked() noexcept {
  sigset_t all;
  sigfillset(&all);
  isInEffect_ = pthread_sigmask(SIG_SETMASK, &all, &previous_) == 0;
}

AllSignalsBlocked::~AllSignalsBlocked() {
  if (isInEffect_) pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

FullyRoot::FullyRoot() noexcept : user_(getuid()), isBorrowed_(user_ != 0 && geteuid() == 0) {
  if (!isBorrowed_) return;
  group_ = getgid();
  effectiveGroup_ = getegid();
  // The effective IDs are 0 already, so only the real ones change. Either call helps without the other.
  [[maybe_unused]] const int group = setregid(0, 0);
  [[maybe_unused]] const int user = setreuid(0, 0);
}

// If a call fails, the process stays fully root until it exits.
FullyRoot::~FullyRoot() {
  if (!isBorrowed_) return;
  [[maybe_unused]] const int group = setregid(group_, effectiveGroup_);
  [[maybe_unused]] const int user = setreuid(user_, 0);
  ForbidTracing();
}

void ClearEnvironment() noexcept {
  static char* empty[] = {nullptr};
  environ = empty;
}

}  // namespace zekara
