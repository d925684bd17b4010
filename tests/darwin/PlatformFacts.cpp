// Checks what the suite assumes about macOS, one named check for each assumption of docs/platforms.md.
//
//   PlatformFacts DIRECTORY [--without NAME]...
//
// Runs as root. DIRECTORY belongs to root, on a file system that honours set-user-ID programs; everything
// that is made there is removed again. Prints "ok NAME" or "FAILED NAME: OBSERVATION" for each check, and
// "left out NAME" for those that --without names. The exit status is 0 if all hold, 1 if one does not, 2 if
// they cannot be run.
//
//   PlatformFacts --as-caller PROGRAM ARGUMENT...       runs the program as the account without rights
//   PlatformFacts --holding FILE PROGRAM ARGUMENT...    runs the program while it holds the file's lock
//
// Some assumptions concern set-user-ID programs. For these the program makes a set-user-ID copy of itself,
// which an account without rights starts: PlatformFacts --set-user-id DIRECTORY [--without NAME]...

#include <dirent.h>
#include <fcntl.h>
#include <libproc.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <xlocale.h>

#include <cerrno>
#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

extern char** environ;
extern "C" int ptrace(int request, pid_t process, char* address, int data);

namespace {

// The account that starts the set-user-ID copy. It needs no entry in the user database.
constexpr uid_t kCaller = 4242;
constexpr gid_t kCallersGroup = 4243;

// What a check returns: empty if the assumption holds, otherwise what was observed instead.
using Observation = std::string;

__attribute__((format(printf, 1, 2))) Observation Observed(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

Observation SystemError(const char* call) {
  return Observed("%s: error %d, %s", call, errno, strerror(errno));
}

// Runs a function in a child process and returns its exit status; 255 if it did not end by itself.
template <typename Function>
int InChild(Function function) {
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) _exit(function());
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(child, &status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

void BecomeCaller() {
  if (setgid(kCallersGroup) != 0 || setuid(kCaller) != 0) _exit(254);
}

class File {
 public:
  File(const std::string& path, int flags, mode_t mode = 0600)
      : descriptor_(open(path.c_str(), flags, mode)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    const int error = errno;
    if (descriptor_ >= 0) close(descriptor_);
    errno = error;
  }
  operator int() const { return descriptor_; }

 private:
  int descriptor_;
};

std::string g_directory;

std::string InDirectory(const char* name) {
  return g_directory + "/" + name;
}

// --- Files and locks

Observation ExlockIsAFlockLock() {
  const std::string path = InDirectory("lock");
  const File holder(path, O_RDWR | O_CREAT | O_EXLOCK);
  const File other(path, O_RDWR);
  if (holder < 0 || other < 0) return SystemError("open");
  if (flock(other, LOCK_SH | LOCK_NB) == 0) return "flock() on another descriptor got the lock as well";
  if (errno != EWOULDBLOCK) return SystemError("flock");
  flock(holder, LOCK_UN);
  if (flock(other, LOCK_EX | LOCK_NB) != 0) return SystemError("flock after LOCK_UN");
  return {};
}

Observation ExlockFailsOrWaitsAsTheFlagsSay() {
  const std::string path = InDirectory("lock");
  const File holder(path, O_RDWR | O_CREAT | O_EXLOCK);
  const File refused(path, O_RDWR | O_EXLOCK | O_NONBLOCK);
  if (refused >= 0) return "O_NONBLOCK: opened although the file is locked";
  if (errno != EWOULDBLOCK) return SystemError("open with O_NONBLOCK");
  signal(SIGALRM, SIG_DFL);
  // The child waits for the lock until its alarm ends it; getting the lock would end it with status 0.
  const int status = InChild([&] {
    alarm(1);
    return open(path.c_str(), O_RDWR | O_EXLOCK) >= 0 ? 0 : 1;
  });
  return status == 255 ? Observation()
                       : Observed("open() without O_NONBLOCK did not wait: status %d", status);
}

Observation ExlockComesBeforeTruncation() {
  const std::string path = InDirectory("lock");
  const File holder(path, O_RDWR | O_CREAT | O_EXLOCK);
  if (write(holder, "text", 4) != 4) return SystemError("write");
  const File refused(path, O_RDWR | O_EXLOCK | O_NONBLOCK | O_TRUNC);
  struct stat status = {};
  if (fstat(holder, &status) != 0) return SystemError("fstat");
  if (refused >= 0 || status.st_size != 4)
    return Observed("the file has %lld bytes left", static_cast<long long>(status.st_size));
  return {};
}

void Ignore(int) {}

// A signal whose handler does not restart calls interrupts the wait for the lock, so it has to be retried.
Observation ExlockIsInterruptedBySignals() {
  const std::string path = InDirectory("lock");
  const File holder(path, O_RDWR | O_CREAT | O_EXLOCK);
  const int status = InChild([&] {
    struct sigaction action = {};
    action.sa_handler = Ignore;
    sigaction(SIGALRM, &action, nullptr);
    alarm(1);
    return open(path.c_str(), O_RDWR | O_EXLOCK) < 0 ? errno : 0;
  });
  return status == EINTR ? Observation() : Observed("open() ended with error %d", status);
}

Observation FullFsyncFlushesAFile() {
  const File file(InDirectory("flushed"), O_RDWR | O_CREAT);
  if (write(file, "text", 4) != 4) return SystemError("write");
  return fcntl(file, F_FULLFSYNC) == 0 ? Observation() : SystemError("F_FULLFSYNC");
}

Observation FullFsyncOfAPipeIsNotAnInputOutputError() {
  int ends[2];
  if (pipe(ends) != 0) return SystemError("pipe");
  const bool isFlushed = fcntl(ends[1], F_FULLFSYNC) == 0;
  const int error = errno;
  close(ends[0]);
  close(ends[1]);
  if (isFlushed) return "it succeeded";
  const bool isExpected = error == ENOTSUP || error == ENOTTY || error == EINVAL || error == EBADF;
  return isExpected ? Observation() : Observed("error %d", error);
}

Observation UnlinkatOfADirectoryIsNotPermitted() {
  const File parent(g_directory, O_RDONLY | O_DIRECTORY);
  if (mkdir(InDirectory("inner").c_str(), 0700) != 0) return SystemError("mkdir");
  const bool isRemoved = unlinkat(parent, "inner", 0) == 0;
  const int error = errno;
  if (isRemoved) return "it was removed without AT_REMOVEDIR";
  if (unlinkat(parent, "inner", AT_REMOVEDIR) != 0) return SystemError("AT_REMOVEDIR");
  return error == EPERM ? Observation() : Observed("error %d instead of EPERM", error);
}

Observation UnlinkatOfAFilledDirectorySaysNotEmpty() {
  const std::string inner = InDirectory("filled");
  if (mkdir(inner.c_str(), 0700) != 0) return SystemError("mkdir");
  { const File file(inner + "/file", O_RDWR | O_CREAT); }
  const bool isRemoved = unlinkat(AT_FDCWD, inner.c_str(), AT_REMOVEDIR) == 0;
  const int error = errno;
  unlink((inner + "/file").c_str());
  rmdir(inner.c_str());
  if (isRemoved) return "it was removed";
  return error == ENOTEMPTY ? Observation() : Observed("error %d instead of ENOTEMPTY", error);
}

Observation DirectoriesAreListedFromADescriptor() {
  const std::string inner = InDirectory("listed");
  if (mkdir(inner.c_str(), 0700) != 0) return SystemError("mkdir");
  { const File file(inner + "/a name", O_RDWR | O_CREAT); }
  DIR* stream = fdopendir(open(inner.c_str(), O_RDONLY | O_DIRECTORY));
  std::string names;
  while (const dirent* entry = stream != nullptr ? readdir(stream) : nullptr) {
    if (entry->d_name[0] != '.') names += entry->d_name;
  }
  if (stream != nullptr) closedir(stream);
  unlink((inner + "/a name").c_str());
  rmdir(inner.c_str());
  return names == "a name" ? Observation() : Observed("it lists \"%s\"", names.c_str());
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

Observation ChownClearsSetUserIdAndChmodRestoresIt() {
  const std::string path = InDirectory("owned");
  { const File file(path, O_RDWR | O_CREAT); }
  if (chmod(path.c_str(), 04755) != 0) return SystemError("chmod");
  if (ModeOf(path) != 04755) return Observed("chmod() to 04755 made it %o", ModeOf(path));
  if (chown(path.c_str(), 0, 0) != 0) return SystemError("chown");
  if (ModeOf(path) != 0755) return Observed("after chown() the mode is %o", ModeOf(path));
  if (chmod(path.c_str(), 04755) != 0 || ModeOf(path) != 04755)
    return Observed("chmod() left it %o", ModeOf(path));
  return {};
}

Observation ApplicationSupportIsSafe() {
  struct stat status = {};
  if (stat("/Library/Application Support", &status) != 0) return SystemError("stat");
  const bool isSafe = status.st_uid == 0 && (status.st_mode & 022) == 0;
  return isSafe ? Observation() : Observed("owner %u, mode %o", status.st_uid, status.st_mode & 07777U);
}

// A descriptor that poll() reports as invalid would make a reader that waits for it spin.
Observation PollReportsDevicesAsReadable() {
  const File null("/dev/null", O_RDWR);
  pollfd ready = {.fd = null, .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, 0) != 1) return "poll() on /dev/null reports nothing";
  return (ready.revents & POLLIN) != 0 ? Observation()
                                       : Observed("poll() on /dev/null reports %#x", ready.revents);
}

Observation PollReportsTheEndOfAPipe() {
  int ends[2];
  if (pipe(ends) != 0) return SystemError("pipe");
  close(ends[1]);
  pollfd ready = {.fd = ends[0], .events = POLLIN, .revents = 0};
  const int count = poll(&ready, 1, 0);
  close(ends[0]);
  const bool isReported =
      count == 1 && (ready.revents & (POLLIN | POLLHUP)) != 0 && (ready.revents & POLLNVAL) == 0;
  return isReported ? Observation() : Observed("poll() returns %d, %#x", count, ready.revents);
}

// --- The C library

// An optimiser could otherwise compute the result by itself.
const char* volatile g_real = "";

Observation StrtodReadsAsCWithoutALocale() {
  struct Row {
    const char* text;
    double value;
  };
  constexpr Row kRows[] = {
      {"0.1", 0.1},
      {"1,5", 1},
      {"-0", -0.0},
      {"9007199254740993", 9007199254740992.0},
      {"123456789.123456789", 123456789.123456789},
      {"2.2250738585072012e-308", 2.2250738585072014e-308},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"1e23", 1e23},
      {"4.9406564584124654e-324", 4.9406564584124654e-324},
  };
  for (const Row& row : kRows) {
    g_real = row.text;
    const double value = strtod_l(g_real, nullptr, nullptr);
    if (value != row.value || std::signbit(value) != std::signbit(row.value))
      return Observed("%s is read as %.17g", row.text, value);
  }
  return {};
}

Observation GetenvReadsEnviron() {
  char** const saved = environ;
  static char* empty[] = {nullptr};
  environ = empty;
  const char* found = getenv("PATH");
  environ = saved;
  return found == nullptr ? Observation() : Observed("it finds PATH=%s", found);
}

long OffsetFromUtc() {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  return local.tm_gmtoff;
}

// The tool clears its environment, and its log still has the machine's time.
Observation TimeZoneNeedsNoEnvironment() {
  const int wanted = InChild([] {
    unsetenv("TZ");
    return static_cast<int>(OffsetFromUtc() / 900) + 100;
  });
  const int found = InChild([] {
    static char* empty[] = {nullptr};
    environ = empty;
    return static_cast<int>(OffsetFromUtc() / 900) + 100;
  });
  return wanted == found
             ? Observation()
             : Observed("%d quarters of an hour from UTC instead of %d", found - 100, wanted - 100);
}

Observation ProgramNameIsTheLastPartOfItsPath() {
  return strcmp(getprogname(), "PlatformFacts") == 0 ? Observation() : Observed("%s", getprogname());
}

Observation ThreadsHaveNumbers() {
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  const int error = pthread_threadid_np(nullptr, &first);
  pthread_threadid_np(nullptr, &second);
  const bool isNumbered = error == 0 && first != 0 && first == second;
  return isNumbered ? Observation() : Observed("error %d, %llu, %llu", error, first, second);
}

// --- The process

Observation DescriptorsAreListedInParts() {
  constexpr int kCount = 700;
  // Closes the descriptors that 256 entries list, until nothing is left.
  const int status = InChild([] {
    rlimit room = {};
    getrlimit(RLIMIT_NOFILE, &room);
    room.rlim_cur = kCount + 100;
    if (setrlimit(RLIMIT_NOFILE, &room) != 0) return 202;
    for (int i = 0; i < kCount; ++i) dup(STDOUT_FILENO);
    for (int round = 1; round < 100; ++round) {
      proc_fdinfo list[256];
      const int size = proc_pidinfo(getpid(), PROC_PIDLISTFDS, 0, list, sizeof list);
      if (size <= 0) return 200;
      bool hasClosed = false;
      for (const proc_fdinfo& one : std::span(list).first(static_cast<std::size_t>(size) / sizeof *list)) {
        if (one.proc_fd > STDERR_FILENO && close(one.proc_fd) == 0) hasClosed = true;
      }
      if (!hasClosed) break;
    }
    for (int descriptor = STDERR_FILENO + 1; descriptor < kCount + 100; ++descriptor) {
      if (fcntl(descriptor, F_GETFD) >= 0) return 201;
    }
    return 0;
  });
  if (status == 200) return "proc_pidinfo() does not list them";
  return status == 0 ? Observation() : Observed("some stayed open: status %d", status);
}

Observation RegionNamesTheProgramsFile() {
  proc_regionwithpathinfo region = {};
  const auto address = reinterpret_cast<std::uint64_t>(&RegionNamesTheProgramsFile);
  const int size = proc_pidinfo(getpid(), PROC_PIDREGIONPATHINFO, address, &region, sizeof region);
  if (size != static_cast<int>(sizeof region))
    return Observed("proc_pidinfo() returns %d, error %d", size, errno);
  struct stat found = {};
  if (stat(region.prp_vip.vip_path, &found) != 0) return SystemError(region.prp_vip.vip_path);
  const vinfo_stat& mapped = region.prp_vip.vip_vi.vi_stat;
  const bool isSame =
      found.st_ino == mapped.vst_ino && static_cast<std::uint32_t>(found.st_dev) == mapped.vst_dev;
  return isSame ? Observation() : Observed("%s has another device or inode", region.prp_vip.vip_path);
}

Observation RegionNeedsTheWholeStructure() {
  proc_regionwithpathinfo region = {};
  const auto address = reinterpret_cast<std::uint64_t>(&RegionNeedsTheWholeStructure);
  const int size = proc_pidinfo(getpid(), PROC_PIDREGIONPATHINFO, address, &region, sizeof region - 1);
  return size == 0 ? Observation() : Observed("with one byte less, proc_pidinfo() returns %d", size);
}

Observation BackgroundStateIsInheritedAndCanBeLeft() {
  const int status = InChild([] {
    if (setpriority(PRIO_DARWIN_PROCESS, 0, PRIO_DARWIN_BG) != 0) return 1;
    const int inherited = InChild([] { return getpriority(PRIO_DARWIN_PROCESS, 0); });
    if (inherited != 1) return 2;
    if (setpriority(PRIO_DARWIN_PROCESS, 0, 0) != 0) return 3;
    return getpriority(PRIO_DARWIN_PROCESS, 0) == 0 ? 0 : 4;
  });
  return status == 0 ? Observation() : Observed("step %d differs", status);
}

Observation DiskPolicyIsInheritedAndCanBeLeft() {
  const int status = InChild([] {
    if (setiopolicy_np(IOPOL_TYPE_DISK, IOPOL_SCOPE_PROCESS, IOPOL_THROTTLE) != 0) return 1;
    const int inherited = InChild([] { return getiopolicy_np(IOPOL_TYPE_DISK, IOPOL_SCOPE_PROCESS); });
    if (inherited != IOPOL_THROTTLE) return 2;
    if (setiopolicy_np(IOPOL_TYPE_DISK, IOPOL_SCOPE_PROCESS, IOPOL_DEFAULT) != 0) return 3;
    return getiopolicy_np(IOPOL_TYPE_DISK, IOPOL_SCOPE_PROCESS) == IOPOL_DEFAULT ? 0 : 4;
  });
  return status == 0 ? Observation() : Observed("step %d differs", status);
}

Observation LimitCanBeRaised(int resource, rlim_t lowered) {
  const int status = InChild([&] {
    rlimit limit = {.rlim_cur = lowered, .rlim_max = lowered};
    if (setrlimit(resource, &limit) != 0) return 1;
    limit = {.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
    if (setrlimit(resource, &limit) != 0) return 2;
    return getrlimit(resource, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY ? 0 : 3;
  });
  return status == 0 ? Observation() : Observed("step %d fails", status);
}

Observation FileSizeLimitCanBeRaised() {
  return LimitCanBeRaised(RLIMIT_FSIZE, 4096);
}
Observation ProcessorLimitCanBeRaised() {
  return LimitCanBeRaised(RLIMIT_CPU, 1000);
}
Observation DataLimitCanBeRaised() {
  return LimitCanBeRaised(RLIMIT_DATA, rlim_t{1} << 34);
}
Observation AddressSpaceLimitCanBeRaised() {
  return LimitCanBeRaised(RLIMIT_AS, rlim_t{1} << 40);
}

// The linker has this program, and the tool, demand a stack of 16 MiB, so the limit does not apply to it.
Observation StackLimitOfAProgramWithItsOwnStackIsFixed() {
  const int error = InChild([] {
    const rlimit limit = {.rlim_cur = rlim_t{8} << 20, .rlim_max = RLIM_INFINITY};
    return setrlimit(RLIMIT_STACK, &limit) == 0 ? 0 : errno;
  });
  return error == EINVAL ? Observation()
                         : Observed("setrlimit(RLIMIT_STACK): error %d instead of EINVAL", error);
}

Observation PlainProcessIsNotPrivileged() {
  return issetugid() == 0 ? Observation() : "issetugid() is not 0";
}

// --- The set-user-ID process

Observation SetUserIdProcessKnowsThatItIsOne() {
  if (issetugid() == 0) return "issetugid() is 0";
  const bool hasIds = getuid() == kCaller && geteuid() == 0 && getgid() == kCallersGroup;
  return hasIds ? Observation()
                : Observed("user %u, effective user %u, group %u", getuid(), geteuid(), getgid());
}

// Its caller has started it with all three closed.
Observation StandardDescriptorsAreOpen() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) < 0) return Observed("descriptor %d is closed", descriptor);
  }
  return {};
}

// Returns what the caller's kill() of this process sets errno to; 0 if it is allowed.
int SignallingByTheCaller() {
  return InChild([target = getpid()] {
    BecomeCaller();
    return kill(target, 0) == 0 ? 0 : errno;
  });
}

Observation IdsGoToRootAndBack() {
  const gid_t effectiveGroup = getegid();
  if (setregid(0, 0) != 0 || setreuid(0, 0) != 0) return SystemError("to root");
  const bool isRoot = getuid() == 0 && geteuid() == 0 && getgid() == 0;
  if (setregid(kCallersGroup, effectiveGroup) != 0 || setreuid(kCaller, 0) != 0) return SystemError("back");
  if (!isRoot) return "setreuid(0, 0) left another id";
  const bool isBack =
      getuid() == kCaller && geteuid() == 0 && getgid() == kCallersGroup && getegid() == effectiveGroup;
  return isBack ? Observation()
                : Observed("%u/%u %u/%u afterwards", getuid(), geteuid(), getgid(), getegid());
}

Observation CallerSignalsOnlyBeforeAndAfter() {
  const int before = SignallingByTheCaller();
  if (setreuid(0, 0) != 0) return SystemError("setreuid");
  const int meanwhile = SignallingByTheCaller();
  if (setreuid(kCaller, 0) != 0) return SystemError("setreuid back");
  const int after = SignallingByTheCaller();
  const bool isExpected = before == 0 && meanwhile == EPERM && after == 0;
  return isExpected ? Observation() : Observed("errors %d, %d and %d", before, meanwhile, after);
}

Observation CallerCannotTrace() {
  constexpr int kAttach = 14;  // PT_ATTACHEXC
  const int error = InChild([target = getpid()] {
    BecomeCaller();
    return ptrace(kAttach, target, nullptr, 0) == 0 ? 0 : errno;
  });
  const bool isRefused = error == EPERM || error == EACCES || error == EBUSY;
  return isRefused ? Observation() : Observed("ptrace() ends with error %d", error);
}

// Its caller has set variables that make the dynamic linker and malloc() report to standard error.
Observation LoaderVariablesAreIgnored() {
  struct stat status = {};
  if (stat(InDirectory("stderr").c_str(), &status) != 0) return SystemError("stat");
  return status.st_size == 0 ? Observation()
                             : Observed("%lld bytes were reported", static_cast<long long>(status.st_size));
}

// --- All of them

enum class Where { kRoot, kSetUserId, kBoth };

struct Check {
  const char* name;
  Where where;
  Observation (*function)();
};

constexpr Check kChecks[] = {
    {"exlock-is-a-flock-lock", Where::kRoot, ExlockIsAFlockLock},
    {"exlock-fails-or-waits", Where::kRoot, ExlockFailsOrWaitsAsTheFlagsSay},
    {"exlock-before-truncation", Where::kRoot, ExlockComesBeforeTruncation},
    {"exlock-interrupted", Where::kRoot, ExlockIsInterruptedBySignals},
    {"full-fsync-of-a-file", Where::kRoot, FullFsyncFlushesAFile},
    {"full-fsync-of-a-pipe", Where::kRoot, FullFsyncOfAPipeIsNotAnInputOutputError},
    {"unlinkat-of-a-directory", Where::kRoot, UnlinkatOfADirectoryIsNotPermitted},
    {"unlinkat-of-a-filled-directory", Where::kRoot, UnlinkatOfAFilledDirectorySaysNotEmpty},
    {"directory-from-a-descriptor", Where::kRoot, DirectoriesAreListedFromADescriptor},
    {"chown-clears-set-user-id", Where::kRoot, ChownClearsSetUserIdAndChmodRestoresIt},
    {"application-support-is-safe", Where::kRoot, ApplicationSupportIsSafe},
    {"poll-of-a-device", Where::kRoot, PollReportsDevicesAsReadable},
    {"poll-of-a-closed-pipe", Where::kRoot, PollReportsTheEndOfAPipe},
    {"strtod-without-a-locale", Where::kRoot, StrtodReadsAsCWithoutALocale},
    {"getenv-reads-environ", Where::kRoot, GetenvReadsEnviron},
    {"time-zone-without-environment", Where::kBoth, TimeZoneNeedsNoEnvironment},
    {"program-name", Where::kRoot, ProgramNameIsTheLastPartOfItsPath},
    {"thread-number", Where::kRoot, ThreadsHaveNumbers},
    {"descriptors-listed-in-parts", Where::kRoot, DescriptorsAreListedInParts},
    {"region-names-the-file", Where::kBoth, RegionNamesTheProgramsFile},
    {"region-needs-the-whole-structure", Where::kRoot, RegionNeedsTheWholeStructure},
    {"background-inherited-and-left", Where::kBoth, BackgroundStateIsInheritedAndCanBeLeft},
    {"disk-policy-inherited-and-left", Where::kBoth, DiskPolicyIsInheritedAndCanBeLeft},
    {"limit-file-size", Where::kBoth, FileSizeLimitCanBeRaised},
    {"limit-processor", Where::kBoth, ProcessorLimitCanBeRaised},
    {"limit-data", Where::kBoth, DataLimitCanBeRaised},
    {"limit-address-space", Where::kBoth, AddressSpaceLimitCanBeRaised},
    {"limit-stack-is-fixed", Where::kRoot, StackLimitOfAProgramWithItsOwnStackIsFixed},
    {"plain-process", Where::kRoot, PlainProcessIsNotPrivileged},
    {"set-user-id-process", Where::kSetUserId, SetUserIdProcessKnowsThatItIsOne},
    {"descriptors-after-exec", Where::kSetUserId, StandardDescriptorsAreOpen},
    {"ids-to-root-and-back", Where::kSetUserId, IdsGoToRootAndBack},
    {"who-may-signal", Where::kSetUserId, CallerSignalsOnlyBeforeAndAfter},
    {"who-may-trace", Where::kSetUserId, CallerCannotTrace},
    {"loader-variables-ignored", Where::kSetUserId, LoaderVariablesAreIgnored},
};

std::vector<std::string_view> g_left_out;

bool IsLeftOut(std::string_view name) {
  for (const std::string_view one : g_left_out) {
    if (one == name) return true;
  }
  return false;
}

// Runs the checks for one kind of process, and writes a line about each. Returns the number of those that
// failed.
int RunChecks(Where where, FILE* report) {
  int failures = 0;
  const char* suffix = where == Where::kSetUserId ? " (set-user-ID)" : "";
  for (const Check& check : kChecks) {
    if (check.where != where && check.where != Where::kBoth) continue;
    if (IsLeftOut(check.name)) {
      fprintf(report, "left out %s%s\n", check.name, suffix);
      continue;
    }
    const Observation observation = check.function();
    if (!observation.empty()) ++failures;
    fprintf(report, observation.empty() ? "ok %s%s\n" : "FAILED %s%s: %s\n", check.name, suffix,
            observation.c_str());
    fflush(report);
  }
  return failures;
}

// The set-user-ID copy is named like the program, so that its name can be checked.
bool CopyTo(const char* source, const std::string& target) {
  const File from(source, O_RDONLY);
  const File to(target, O_WRONLY | O_CREAT | O_TRUNC, 0700);
  if (from < 0 || to < 0) return false;
  char block[65536];
  ssize_t size = 0;
  while ((size = read(from, block, sizeof block)) > 0) {
    if (write(to, block, static_cast<std::size_t>(size)) != size) return false;
  }
  return size == 0 && fchown(to, 0, 0) == 0 && fchmod(to, 04755) == 0;
}

// Starts the copy as the account without rights, without standard descriptors. It reports to a file.
int StartCopy(const std::string& copy, const std::vector<char*>& arguments) {
  return InChild([&] {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    open(InDirectory("stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(STDIN_FILENO, STDERR_FILENO);
    close(STDIN_FILENO);
    setenv("DYLD_PRINT_LIBRARIES", "1", 1);
    setenv("DYLD_PRINT_INITIALIZERS", "1", 1);
    setenv("MallocStackLogging", "1", 1);
    BecomeCaller();
    execv(copy.c_str(), arguments.data());
    return 253;
  });
}

void PrintFile(const std::string& path) {
  const File file(path, O_RDONLY);
  char block[4096];
  ssize_t size = 0;
  while ((size = read(file, block, sizeof block)) > 0)
    fwrite(block, 1, static_cast<std::size_t>(size), stdout);
}

int RunSetUserIdChecks(std::span<char*> arguments) {
  std::string copy = InDirectory("PlatformFacts");
  if (!CopyTo(arguments[0], copy)) {
    printf("FAILED set-user-id-copy: error %d, %s\n", errno, strerror(errno));
    return 1;
  }
  char mode[] = "--set-user-id";
  std::vector<char*> itsArguments = {copy.data(), static_cast<char*>(mode)};
  itsArguments.insert(itsArguments.end(), arguments.begin() + 1, arguments.end());
  itsArguments.push_back(nullptr);
  const int status = StartCopy(copy, itsArguments);
  PrintFile(InDirectory("report"));
  if (status >= 100) printf("FAILED set-user-id-copy: status %d\n", status);
  return status;
}

void RemoveFiles() {
  for (const char* name : {"lock", "flushed", "owned", "stderr", "report", "PlatformFacts"})
    unlink(InDirectory(name).c_str());
}

int RunAsCaller(std::span<char*> command) {
  BecomeCaller();
  execv(command[0], command.data());
  perror(command[0]);
  return 2;
}

int RunHolding(const char* path, std::span<char*> command) {
  const File holder(path, O_RDWR | O_CREAT | O_EXLOCK | O_CLOEXEC, 0444);
  if (holder < 0) {
    perror(path);
    return 2;
  }
  return InChild([&] {
    execv(command[0], command.data());
    return 2;
  });
}

bool ReadArguments(std::span<char*> arguments) {
  if (arguments.empty()) return false;
  g_directory = arguments[0];
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    if (arguments[i] != std::string_view("--without") || i + 1 == arguments.size()) return false;
    g_left_out.emplace_back(arguments[i + 1]);
  }
  return true;
}

int MainOfTheCopy() {
  FILE* report = fopen(InDirectory("report").c_str(), "w");
  if (report == nullptr) return 252;
  const int failures = RunChecks(Where::kSetUserId, report);
  fclose(report);
  return failures;
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
  const std::string_view mode = argc > 2 ? argv[1] : "";
  if (mode == "--as-caller") return RunAsCaller(arguments.subspan(2));
  if (mode == "--holding" && argc > 3) return RunHolding(argv[2], arguments.subspan(3));
  const bool isCopy = mode == "--set-user-id";
  if (argc < 2 || !ReadArguments(arguments.subspan(isCopy ? 2 : 1)) || geteuid() != 0) {
    fprintf(stderr, "Usage, as root: PlatformFacts DIRECTORY [--without NAME]...\n");
    return 2;
  }
  if (isCopy) return MainOfTheCopy();
  const int failures = RunChecks(Where::kRoot, stdout) + RunSetUserIdChecks(arguments);
  RemoveFiles();
  return failures == 0 ? 0 : 1;
}
