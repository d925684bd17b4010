#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortableFoundation/NSLog.h"
#include "Zekara4MacTool/ProcessState.h"
#include "tests/support/Processes.h"

#ifdef __linux__
#include <sys/prctl.h>
#endif

extern char** environ;  // the headers of macOS do not declare it

namespace zekara::test {
namespace {

using testing::ElementsAre;

constexpr auto kIgnored = {SIGPIPE, SIGXFSZ, SIGTSTP, SIGTTIN, SIGTTOU};

bool IsIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

rlimit LimitOf(int resource) {
  rlimit limit = {};
  EXPECT_EQ(getrlimit(resource, &limit), 0);
  return limit;
}

void SetLimit(int resource, rlim_t soft, rlim_t hard) {
  const rlimit limit = {.rlim_cur = soft, .rlim_max = hard};
  ASSERT_EQ(setrlimit(resource, &limit), 0);
}

TEST(PrepareProcess, SignalsThatWouldEndOrStopItAreIgnored) {
  RunInChild([] {
    for (const int signal : kIgnored) ::signal(signal, SIG_DFL);
    PrepareProcess();
    for (const int signal : kIgnored) EXPECT_TRUE(IsIgnored(signal)) << signal;
    for (const int signal : kIgnored) raise(signal);
  });
}

TEST(PrepareProcess, OtherSignalsKeepTheirDispositions) {
  RunInChild([] {
    signal(SIGHUP, SIG_IGN);  // as nohup does
    signal(SIGTERM, SIG_DFL);
    PrepareProcess();
    EXPECT_TRUE(IsIgnored(SIGHUP));
    EXPECT_FALSE(IsIgnored(SIGTERM));
    EXPECT_FALSE(IsIgnored(SIGINT));
  });
}

TEST(PrepareProcess, TimersAreStopped) {
  RunInChild([] {
    const itimerval soon = {.it_interval = {3600, 0}, .it_value = {3600, 0}};
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF})
      ASSERT_EQ(setitimer(timer, &soon, nullptr), 0);
    PrepareProcess();
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
      itimerval now = {};
      ASSERT_EQ(getitimer(timer, &now), 0);
      EXPECT_EQ(now.it_value.tv_sec, 0);
      EXPECT_EQ(now.it_value.tv_usec, 0);
      EXPECT_EQ(now.it_interval.tv_sec, 0);
    }
  });
}

TEST(PrepareProcess, InheritedDescriptorsAreClosedAndTheStandardOnesKept) {
  RunInChild([] {
    for (const int descriptor : {3, 4, 77, 500}) dup2(STDIN_FILENO, descriptor);
    struct stat before[3] = {};
    for (int descriptor = 0; descriptor < 3; ++descriptor) fstat(descriptor, &before[descriptor]);
    PrepareProcess();
    for (int descriptor = 0; descriptor < 3; ++descriptor) {
      struct stat after = {};
      ASSERT_EQ(fstat(descriptor, &after), 0);
      EXPECT_TRUE(IsSameFile(before[descriptor], after)) << descriptor;
    }
    for (int descriptor = 3; descriptor < 600; ++descriptor)
      EXPECT_LT(fcntl(descriptor, F_GETFD), 0) << descriptor;
  });
}

// Tries every combination of closed descriptors. The child reports by its exit status, because it may have
// nothing to write to.
TEST(PrepareProcess, ClosedStandardDescriptorsAreTheNullDeviceAndOutputCannotBeWritten) {
  for (int closed = 1; closed < 8; ++closed) {
    const pid_t child = StartChild([closed] {
      for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((closed & 1 << descriptor) != 0) close(descriptor);
      }
      PrepareProcess();
      struct stat null = {};
      stat("/dev/null", &null);
      for (int descriptor = 0; descriptor < 3; ++descriptor) {
        if ((closed & 1 << descriptor) == 0) continue;
        struct stat found = {};
        if (fstat(descriptor, &found) != 0 || !IsSameFile(found, null)) return 1;
        const int expected = descriptor == STDOUT_FILENO ? O_RDONLY : O_RDWR;
        if ((fcntl(descriptor, F_GETFL) & O_ACCMODE) != expected) return 2;
      }
      return fcntl(3, F_GETFD) < 0 ? 0 : 3;
    });
    EXPECT_EQ(WaitForChild(child), 0) << closed;
  }
}

TEST(PrepareProcess, DescriptorIsFoundForStandardErrorWhateverTheLimit) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const pid_t child = StartChild([] {
    close(STDERR_FILENO);
    const rlimit none = {.rlim_cur = 0, .rlim_max = 0};
    setrlimit(RLIMIT_NOFILE, &none);
    PrepareProcess();
    rlimit now = {};
    getrlimit(RLIMIT_NOFILE, &now);
    if (now.rlim_cur == 0) return 0;  // not allowed here
    return fcntl(STDERR_FILENO, F_GETFD) >= 0 ? 0 : 1;
  });
  EXPECT_EQ(WaitForChild(child), 0);
}

struct Limit {
  const char* name;
  int resource;
  rlim_t soft;
  rlim_t wanted;
};

class PrepareProcessLimit : public testing::TestWithParam<Limit> {};

TEST_P(PrepareProcessLimit, SoftLimitIsRaisedAsFarAsTheHardOneGoes) {
  RunInChild([] {
    const rlim_t hard = std::min(LimitOf(GetParam().resource).rlim_max, GetParam().wanted);
    SetLimit(GetParam().resource, std::min(GetParam().soft, hard), LimitOf(GetParam().resource).rlim_max);
    PrepareProcess();
    EXPECT_EQ(LimitOf(GetParam().resource).rlim_cur, hard);
  });
}

TEST_P(PrepareProcessLimit, HardLimitThatMayNotBeRaisedIsTheSoftOneToo) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    const rlim_t hard = GetParam().soft * 2;
    SetLimit(GetParam().resource, GetParam().soft, hard);
    ASSERT_TRUE(BecomeOtherUser());
    PrepareProcess();
    EXPECT_EQ(LimitOf(GetParam().resource).rlim_cur, hard);
    EXPECT_EQ(LimitOf(GetParam().resource).rlim_max, hard);
  });
}

TEST_P(PrepareProcessLimit, LimitThatIsHighEnoughStays) {
  RunInChild([] {
    if (GetParam().wanted == RLIM_INFINITY || LimitOf(GetParam().resource).rlim_max < GetParam().wanted + 1)
      return;
    SetLimit(GetParam().resource, GetParam().wanted + 1, LimitOf(GetParam().resource).rlim_max);
    PrepareProcess();
    EXPECT_EQ(LimitOf(GetParam().resource).rlim_cur, GetParam().wanted + 1);
  });
}

INSTANTIATE_TEST_SUITE_P(Resources, PrepareProcessLimit,
                         testing::Values(Limit{"FileSize", RLIMIT_FSIZE, 1000, RLIM_INFINITY},
                                         Limit{"Processor", RLIMIT_CPU, 100, RLIM_INFINITY},
                                         Limit{"Descriptors", RLIMIT_NOFILE, 20, 256},
                                         Limit{"Stack", RLIMIT_STACK, 1 << 20, 8 << 20}),
                         [](const auto& test) { return test.param.name; });

TEST(PrepareProcess, CoreDumpsAreForbidden) {
  RunInChild([] {
    PrepareProcess();
    EXPECT_EQ(LimitOf(RLIMIT_CORE).rlim_cur, 0U);
    EXPECT_EQ(LimitOf(RLIMIT_CORE).rlim_max, 0U);
  });
}

TEST(PrepareProcess, PrivilegedProcessHasNoEnvironmentAndCannotBeTraced) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    setenv("TZ", "/etc/shadow", 1);
    ASSERT_TRUE(BorrowRootsRights());
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 15), 0);
    PrepareProcess();
    EXPECT_EQ(*environ, nullptr);
#ifdef __linux__
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), 0);
#endif
    if (MayRaisePriority()) {
      EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 0);
    }
  });
}

TEST(PrepareProcess, ProcessOfOneUserKeepsItsEnvironmentAndPriority) {
  RunInChild([] {
    setenv("ZEKARA_TEST", "value", 1);
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 15), 0);
    PrepareProcess();
    EXPECT_STREQ(std::getenv("ZEKARA_TEST"), "value");
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 15);
  });
}

TEST(PrepareProcess, LogLinesBearTheToolsNameWhateverItWasStartedAs) {
  RunInChild([] {
    PrepareProcess();
    CapturedLog log;
    NSLog("x");
    EXPECT_THAT(log.text(), testing::HasSubstr(" Zekara4MacTool["));
  });
}

TEST(PrepareProcess, IdsAndWorkingDirectoryAndMaskAreTheCallers) {
  RunInChild([] {
    umask(027);
    const auto directory = std::filesystem::current_path();
    PrepareProcess();
    EXPECT_EQ(umask(0), 027U);
    EXPECT_EQ(std::filesystem::current_path(), directory);
  });
}

bool IsBlocked(int signal) {
  sigset_t blocked;
  sigemptyset(&blocked);
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  return sigismember(&blocked, signal) == 1;
}

TEST(Transaction, SignalsAreBlockedFromTheCallToTheEnd) {
  RunInChild([] {
    for (int round = 0; round < 2; ++round) {
      {
        Transaction transaction;
        EXPECT_FALSE(IsBlocked(SIGTERM));
        transaction.blockSignals();
        transaction.blockSignals();
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGUSR1, SIGXCPU, SIGQUIT}) {
          EXPECT_TRUE(IsBlocked(signal)) << signal;
        }
      }
      EXPECT_FALSE(IsBlocked(SIGTERM));
    }
  });
}

TEST(Transaction, SignalThatArrivesMeanwhileTakesEffectAtTheEnd) {
  const pid_t child = StartChild([] {
    Transaction transaction;
    transaction.blockSignals();
    kill(getpid(), SIGTERM);
    // A signal that takes effect at once would end the process in the same way, so the mask is checked here.
    return IsBlocked(SIGTERM) ? 7 : 1;
  });
  EXPECT_EQ(WaitForChild(child), 128 + SIGTERM);
}

TEST(Transaction, ProcessIsFullyRootMeanwhileAndItsCallersAfterwards) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    ASSERT_TRUE(BorrowRootsRights());
    for (int round = 0; round < 2; ++round) {
      {
        const Transaction transaction;
        for (const uid_t id : {getuid(), geteuid()}) EXPECT_EQ(id, 0U);
        for (const gid_t id : {getgid(), getegid()}) EXPECT_EQ(id, 0U);
      }
      EXPECT_EQ(getuid(), kOtherUser);
      EXPECT_EQ(geteuid(), 0U);
      EXPECT_EQ(getgid(), kOtherUser);
      EXPECT_EQ(getegid(), 0U);
    }
  });
}

TEST(Transaction, IdsOfAProcessWithoutRightsStay) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  RunInChild([] {
    ASSERT_TRUE(BecomeOtherUser());
    {
      const Transaction transaction;
      EXPECT_EQ(getuid(), kOtherUser);
      EXPECT_EQ(geteuid(), kOtherUser);
    }
    EXPECT_EQ(geteuid(), kOtherUser);
  });
}

TEST(Transaction, MemoryLimitsAreRaisedAndAreTheCallersAgainAfterwards) {
  RunInChild([] {
    constexpr rlim_t kCallers = rlim_t{1} << 46;
    for (const int resource : {RLIMIT_AS, RLIMIT_DATA}) {
      SetLimit(resource, kCallers, LimitOf(resource).rlim_max);
    }
    const rlim_t hard[] = {LimitOf(RLIMIT_AS).rlim_max, LimitOf(RLIMIT_DATA).rlim_max};
    {
      const Transaction transaction;
      for (const int resource : {RLIMIT_AS, RLIMIT_DATA}) {
        EXPECT_EQ(LimitOf(resource).rlim_cur, LimitOf(resource).rlim_max);
      }
    }
    for (const int resource : {RLIMIT_AS, RLIMIT_DATA}) EXPECT_EQ(LimitOf(resource).rlim_cur, kCallers);
    EXPECT_EQ(LimitOf(RLIMIT_AS).rlim_max, hard[0]);
    EXPECT_EQ(LimitOf(RLIMIT_DATA).rlim_max, hard[1]);
  });
}

TEST(Transaction, LogLinesAreWrittenBeforeAPendingSignalTakesEffect) {
  Pipe log;
  const pid_t child = StartChild([&] {
    dup2(log.input.get(), STDERR_FILENO);
    Transaction transaction;
    transaction.blockSignals();
    kill(getpid(), SIGTERM);
    transaction.blockSignals();  // again, which lets nothing through
    NSLog("logged in the transaction");
    return 0;
  });
  log.input.reset();
  EXPECT_THAT(ReadToEnd(log.output.get()), testing::HasSubstr("logged in the transaction"));
  EXPECT_EQ(WaitForChild(child), 128 + SIGTERM);
}

TEST(Transaction, LogLinesAreHeldBackUntilItsEnd) {
  CapturedLog log;
  {
    const Transaction transaction;
    NSLog("one");
    NSLog("two");
    EXPECT_EQ(log.text(), "");
  }
  EXPECT_THAT(log.messages(), ElementsAre("one", "two"));
}

}  // namespace
}  // namespace zekara::test
