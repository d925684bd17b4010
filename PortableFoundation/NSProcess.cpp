#include "PortableFoundation/NSProcess.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#ifdef __APPLE__
#include <libproc.h>
#else
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <algorithm>
#include <limits>
#include <utility>

extern char** environ;

namespace zekara {
namespace {

// What is left where no call closes them all at once.
[[maybe_unused]] void CloseDescriptorsOneByOne(int first) noexcept {
  constexpr rlim_t kHighest = 65536;
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto end = static_cast<int>(std::min(limit.rlim_cur, kHighest));
  for (int descriptor = first; descriptor < end; ++descriptor) close(descriptor);
}

}  // namespace

#ifdef __APPLE__

bool NSProcessIsPrivileged() noexcept {
  return issetugid() != 0 || getuid() != geteuid() || getgid() != getegid();
}

// The path is that of the region that holds this very code; it is believed only if it still names that file.
Descriptor NSProcessOpenExecutable() noexcept {
  proc_regionwithpathinfo region = {};
  const auto address = reinterpret_cast<std::uint64_t>(&NSProcessOpenExecutable);
  const int size = proc_pidinfo(getpid(), PROC_PIDREGIONPATHINFO, address, &region, sizeof region);
  if (size != static_cast<int>(sizeof region)) return Descriptor();
  Descriptor file = OpenAt(AT_FDCWD, region.prp_vip.vip_path, O_RDONLY | O_NONBLOCK);
  const vinfo_stat& mapped = region.prp_vip.vip_vi.vi_stat;
  struct stat opened = {};
  const bool isMapped = file.isOpen() && fstat(file.get(), &opened) == 0 && opened.st_ino == mapped.vst_ino &&
                        static_cast<std::uint32_t>(opened.st_dev) == mapped.vst_dev;
  return isMapped ? std::move(file) : Descriptor();
}

void NSProcessForbidTracing() noexcept {}  // the system lets nobody trace a set-user-id process

void NSProcessCloseDescriptorsFrom(int first) noexcept { CloseDescriptorsOneByOne(first); }

#else

bool NSProcessIsPrivileged() noexcept {
  return getauxval(AT_SECURE) != 0 || getuid() != geteuid() || getgid() != getegid();
}

Descriptor NSProcessOpenExecutable() noexcept { return OpenAt(AT_FDCWD, "/proc/self/exe", O_RDONLY); }

void NSProcessForbidTracing() noexcept { prctl(PR_SET_DUMPABLE, 0, 0, 0, 0); }

void NSProcessCloseDescriptorsFrom(int first) noexcept {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, static_cast<unsigned>(first), ~0U, 0U) == 0) return;
#endif
  CloseDescriptorsOneByOne(first);  // Linux before 5.9
}

#endif

Descriptor NSProcessOpenExecutableNamed(const char* path) noexcept {
  Descriptor running = NSProcessOpenExecutable();
  struct stat named = {};
  struct stat opened = {};
  const bool isSame = running.isOpen() && fstat(running.get(), &opened) == 0 && stat(path, &named) == 0 &&
                      IsSameFile(named, opened);
  return isSame ? std::move(running) : Descriptor();
}

std::uint64_t NSProcessFileSizeLimit() noexcept {
  rlimit limit = {};
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 ? limit.rlim_cur : std::numeric_limits<std::uint64_t>::max();
}

AllSignalsBlocked::AllSignalsBlocked() noexcept {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous_);
}

AllSignalsBlocked::~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

void NSProcessClearEnvironment() noexcept {
  static char* empty[] = {nullptr};
  environ = empty;
}

}  // namespace zekara
