#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

#include "PortableFoundation/Process.h"
#include "tests/support/Faults.h"
#include "tests/support/Processes.h"

#ifdef __linux__
#include <sched.h>
#include <sys/prctl.h>
#endif

extern char** environ;  // the headers of macOS do not declare it

namespace zekara::test {
namespace {

TEST(Process, ProcessOfOneUserIsNotPrivileged) {
  EXPECT_FALSE(ProcessIsPrivileged());
  if (!IsRoot()) return;
  RunInChild([] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_FALSE(ProcessIsPrivileged());
  });
}

TEST(Process, DifferentRealAndEffectiveIdsArePrivileged) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    ASSERT_EQ(setreuid(kOtherUser, 0), 0);
    EXPECT_TRUE(ProcessIsPrivileged());
  });
  RunInChild([] {
    ASSERT_EQ(setregid(kOtherUser, 0), 0);
    EXPECT_TRUE(ProcessIsPrivileged());
  });
}

#ifdef __linux__
TEST(Process, ExecutableIsTheRunningFile) {
  const Descriptor file = OpenRunningExecutable();
  ASSERT_TRUE(file.isOpen());
  struct stat opened = {};
  struct stat running = {};
  ASSERT_EQ(fstat(file.get(), &opened), 0);
  ASSERT_EQ(stat("/proc/self/exe", &running), 0);
  EXPECT_TRUE(IsSameFile(opened, running));
  EXPECT_EQ(opened.st_ino, StatusOf(std::filesystem::read_symlink("/proc/self/exe").string()).st_ino);
}

TEST(Process, ExecutableIsOpenedByItsOwnNamesOnly) {
  const TemporaryDirectory directory;
  const std::string own = std::filesystem::read_symlink("/proc/self/exe").string();
  ASSERT_EQ(symlink(own.c_str(), (directory / "link").c_str()), 0);
  std::filesystem::copy_file(own, directory / "copy");
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  EXPECT_TRUE(OpenRunningExecutableNamed(own.c_str()).isOpen());
  EXPECT_TRUE(OpenRunningExecutableNamed((directory / "link").c_str()).isOpen());
  for (const char* name : {"copy", "fifo", "missing"}) {
    EXPECT_FALSE(OpenRunningExecutableNamed((directory / name).c_str()).isOpen()) << name;
  }
}
#endif

TEST(Process, FileSizeLimitIsTheSoftOne) {
  RunInChild([] {
    const rlimit limit = {.rlim_cur = 12345, .rlim_max = 54321};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(FileSizeLimit(), 12345U);
  });
}

TEST(Process, CpuTimeLeftIsWhatTheHardLimitLeaves) {
  RunInChild([] {
    const rlimit limit = {.rlim_cur = 1000, .rlim_max = 5000};
    ASSERT_EQ(setrlimit(RLIMIT_CPU, &limit), 0);
    EXPECT_LT(CpuTimeLeft(), 5000U);
    EXPECT_GT(CpuTimeLeft(), 4000U);
  });
}

TEST(Process, CpuTimeLeftIsNoneIfTheLimitMayBeReachedAtAnyMoment) {
  RunInChild([] {
    const rlimit limit = {.rlim_cur = 1, .rlim_max = 1};
    ASSERT_EQ(setrlimit(RLIMIT_CPU, &limit), 0);
    EXPECT_EQ(CpuTimeLeft(), 0U);
  });
}

sigset_t BlockedSignals() {
  sigset_t blocked;
  sigemptyset(&blocked);
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  return blocked;
}

TEST(Process, SignalsAreBlockedUntilTheObjectGoesAndThenAsBefore) {
  RunInChild([] {
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &own, nullptr);
    {
      const AllSignalsBlocked all;
      for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGTSTP, SIGUSR1, SIGUSR2, SIGXCPU}) {
        const sigset_t blocked = BlockedSignals();
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
      }
    }
    const sigset_t after = BlockedSignals();
    EXPECT_EQ(sigismember(&after, SIGUSR2), 1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGTSTP, SIGUSR1, SIGXCPU}) {
      EXPECT_EQ(sigismember(&after, signal), 0) << signal;
    }
  });
}

TEST(Process, FullyRootHasItsRealIdsAtZeroAndGivesThemBack) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  for (const gid_t effectiveGroup : {gid_t{0}, gid_t{kOtherUser}}) {
    RunInChild([&] {
      ASSERT_EQ(setregid(kOtherUser, effectiveGroup), 0);
      ASSERT_EQ(setreuid(kOtherUser, 0), 0);
      {
        const FullyRoot root;
        EXPECT_EQ(getuid(), 0U);
        EXPECT_EQ(geteuid(), 0U);
        EXPECT_EQ(getgid(), 0U);
        EXPECT_EQ(getegid(), 0U);
      }
      EXPECT_EQ(getuid(), uid_t{kOtherUser});
      EXPECT_EQ(geteuid(), 0U);
      EXPECT_EQ(getgid(), gid_t{kOtherUser});
      EXPECT_EQ(getegid(), effectiveGroup);
    });
  }
}

#ifdef __linux__
TEST(Process, FullyRootLeavesTheProcessUndumpable) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    ASSERT_TRUE(BorrowRootsRights());
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);  // as a change of IDs does where the system's default is 1
    { const FullyRoot root; }
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  });
}

struct Ids {
  uid_t user, effectiveUser, savedUser;
  gid_t group, effectiveGroup, savedGroup;
  bool operator==(const Ids&) const = default;
};

Ids CurrentIds() {
  Ids ids = {};
  getresuid(&ids.user, &ids.effectiveUser, &ids.savedUser);
  getresgid(&ids.group, &ids.effectiveGroup, &ids.savedGroup);
  return ids;
}

void PrintTo(const Ids& ids, std::ostream* out) {
  *out << ids.user << ":" << ids.effectiveUser << ":" << ids.savedUser << " " << ids.group << ":"
       << ids.effectiveGroup << ":" << ids.savedGroup;
}

TEST(Process, FullyRootDoesNothingForRootAndForOthers) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  for (const bool isOther : {false, true}) {
    RunInChild([&] {
      ASSERT_TRUE(!isOther || BecomeOtherUser());
      const Ids before = CurrentIds();
      {
        const FullyRoot root;
        EXPECT_EQ(CurrentIds(), before);
      }
      EXPECT_EQ(CurrentIds(), before);
    });
  }
}
#endif

TEST(Process, CallersSignalDoesNotReachAFullyRootProcess) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  Pipe ready;
  Pipe done;
  const pid_t tool = StartChild([&] {
    if (!BorrowRootsRights()) return 1;
    const FullyRoot root;
    char byte = 'x';
    if (write(ready.input.get(), &byte, 1) != 1 || read(done.output.get(), &byte, 1) != 1) return 2;
    return 0;
  });
  char byte = 0;
  ASSERT_EQ(read(ready.output.get(), &byte, 1), 1);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_NE(kill(tool, SIGKILL), 0);
    EXPECT_EQ(errno, EPERM);
  });
  ASSERT_EQ(write(done.input.get(), "x", 1), 1);
  EXPECT_EQ(WaitForChild(tool), 0);
}

#ifdef __linux__
TEST(Process, RestoredPriorityIsThatOfAnyOther) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  if (!MayRaisePriority()) GTEST_SKIP() << "needs the right to raise a priority (CAP_SYS_NICE)";
  if (sched_getscheduler(0) < 0) GTEST_SKIP() << "musl has no sched_setscheduler()";
  RunInChild([] {
    constexpr sched_param none = {};
    ASSERT_EQ(sched_setscheduler(0, SCHED_IDLE, &none), 0);
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 15), 0);
    RestoreDefaultPriority();
    EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 0);
  });
}
#endif

TEST(Process, ClearedEnvironmentIsEmpty) {
  RunInChild([] {
    setenv("LD_PRELOAD", "/tmp/evil.so", 1);
    ClearEnvironment();
    EXPECT_EQ(std::getenv("LD_PRELOAD"), nullptr);
    EXPECT_EQ(std::getenv("PATH"), nullptr);
    EXPECT_EQ(*environ, nullptr);
    EXPECT_EQ(setenv("NAME", "value", 1), 0);  // and is still an environment
    EXPECT_STREQ(std::getenv("NAME"), "value");
  });
}

#ifdef __linux__
TEST(Process, ForbiddenTracingMakesItUndumpable) {
  RunInChild([] {
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 1);
    ForbidTracing();
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
  });
}
#endif

TEST(Process, DescriptorsAreClosedFromTheFirstUp) {
  RunInChild([] {
    for (const int descriptor : {10, 11, 12, 500, 1000}) dup2(STDIN_FILENO, descriptor);
    CloseDescriptorsFrom(11);
    EXPECT_GE(fcntl(10, F_GETFD), 0);
    for (const int descriptor : {11, 12, 500, 1000}) EXPECT_LT(fcntl(descriptor, F_GETFD), 0) << descriptor;
  });
}

#ifdef __linux__
TEST(Process, DescriptorsAreClosedWhereNoSingleCallDoesIt) {
  RunInChild([] {
    for (const int descriptor : {10, 11, 500, 1000}) dup2(STDIN_FILENO, descriptor);
    ASSERT_TRUE(MakeSystemCallsFail({SYS_close_range}, ENOSYS));
    CloseDescriptorsFrom(11);
    EXPECT_GE(fcntl(10, F_GETFD), 0);
    for (const int descriptor : {11, 500, 1000}) EXPECT_LT(fcntl(descriptor, F_GETFD), 0) << descriptor;
  });
}
#endif

}  // namespace
}  // namespace zekara::test
