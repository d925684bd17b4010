#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSException.h"
#include "Zekara4MacTool/SelfCheck.h"
#include "tests/support/Faults.h"
#include "tests/support/PrivateRoot.h"

#ifdef __linux__
#include <sys/sysmacros.h>
#endif

namespace zekara::test {
namespace {

using testing::ElementsAre;

#ifdef __linux__
#ifdef SYS_chmod
constexpr auto kModeCalls = {SYS_chmod, SYS_fchmodat, SYS_fchmod};
#else
constexpr auto kModeCalls = {SYS_fchmodat, SYS_fchmod};
#endif
#ifdef SYS_chown
constexpr auto kOwnerCalls = {SYS_chown, SYS_fchownat, SYS_fchown};
#else
constexpr auto kOwnerCalls = {SYS_fchownat, SYS_fchown};
#endif

bool Fail(std::initializer_list<int> calls) {
  return MakeSystemCallsFail(calls, EPERM);
}
#endif

timespec ChangeTimeOf(const struct stat& status) {
#ifdef __APPLE__
  return status.st_ctimespec;
#else
  return status.st_ctim;
#endif
}

// Returns the details of the error that the self-check throws, or nil if it returns.
Plist Outcome(const std::string& path) {
  try {
    EXPECT_TRUE(SelfCheck(path));
    return {};
  } catch (const NSException&) {
    ADD_FAILURE() << "taken for an NSException";
  } catch (const NSError& error) {
    EXPECT_EQ(error.domain(), "xx");
    EXPECT_EQ(error.code(), 123);
    return error.userInfo();
  }
  return {};
}

Plist RequestedIds() {
  return Plist::dictionary({{"NSFileOwnerAccountID", 0}, {"NSFileGroupOwnerAccountID", 0}});
}

class SelfCheckPath : public testing::Test {
 protected:
  void make(uid_t owner, gid_t group, mode_t mode) const {
    WriteFile(path_, "");
    ASSERT_EQ(chown(path_.c_str(), owner, group), 0);
    ASSERT_EQ(chmod(path_.c_str(), mode), 0);
    ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
  }
  void expectAttributes(uid_t owner, gid_t group, mode_t mode) const {
    EXPECT_EQ(StatusOf(path_).st_uid, owner);
    EXPECT_EQ(StatusOf(path_).st_gid, group);
    EXPECT_EQ(ModeOf(path_), mode);
  }

  TemporaryDirectory directory_;
  std::string path_ = directory_ / "tool";
};

class SelfCheckAsRoot : public SelfCheckPath {
 protected:
  void SetUp() override {
    if (!IsRoot()) GTEST_SKIP() << "needs root";
  }
};

#ifdef __linux__
TEST_F(SelfCheckAsRoot, CorrectFileIsLoggedAndNotChanged) {
  make(0, 0, 04755);
  const struct stat before = StatusOf(path_);
  RunInChild([&] {
    // Any change would fail and be noticed.
    ASSERT_TRUE(Fail(kModeCalls));
    ASSERT_TRUE(Fail(kOwnerCalls));
    CapturedLog log;
    EXPECT_TRUE(Outcome(path_).isNil());
    EXPECT_THAT(log.messages(), ElementsAre("Self-check passed"));
  });
  const struct stat after = StatusOf(path_);
  EXPECT_EQ(ChangeTimeOf(after).tv_sec, ChangeTimeOf(before).tv_sec);
  EXPECT_EQ(ChangeTimeOf(after).tv_nsec, ChangeTimeOf(before).tv_nsec);
}
#endif

struct Wrong {
  const char* name;
  uid_t owner;
  gid_t group;
  mode_t mode;
};

class SelfCheckRepair : public SelfCheckAsRoot, public testing::WithParamInterface<Wrong> {};

TEST_P(SelfCheckRepair, OwnerGroupAndModeAreSet) {
  make(GetParam().owner, GetParam().group, GetParam().mode);
  CapturedLog log;
  EXPECT_TRUE(Outcome(path_).isNil());
  EXPECT_THAT(log.messages(), ElementsAre("Self-reparing complete"));
  expectAttributes(0, 0, 04755);
}

#ifdef __linux__
// The owner is changed even if it is right already.
TEST_P(SelfCheckRepair, FailureToChangeTheOwnerThrowsTheRequestedIdsAndLeavesTheMode) {
  make(GetParam().owner, GetParam().group, GetParam().mode);
  RunInChild([&] {
    ASSERT_TRUE(Fail(kOwnerCalls));
    CapturedLog log;
    EXPECT_EQ(Outcome(path_), RequestedIds());
    EXPECT_THAT(log.messages(), ElementsAre("Can't change owner on " + path_));
  });
  expectAttributes(GetParam().owner, GetParam().group, GetParam().mode);
}

// The tool changes the owner before the mode.
TEST_P(SelfCheckRepair, FailureToChangeTheModeThrowsTheAttributesFoundBefore) {
  make(GetParam().owner, GetParam().group, GetParam().mode);
  RunInChild([&] {
    ASSERT_TRUE(Fail(kModeCalls));
    CapturedLog log;
    EXPECT_EQ(Outcome(path_), Plist::dictionary({{"NSFileOwnerAccountID", GetParam().owner},
                                                 {"NSFileGroupOwnerAccountID", GetParam().group},
                                                 {"NSFilePosixPermissions", GetParam().mode}}));
    EXPECT_THAT(log.messages(), ElementsAre("Can't change attributes on " + path_));
  });
  EXPECT_EQ(StatusOf(path_).st_uid, 0U);
  EXPECT_EQ(StatusOf(path_).st_gid, 0U);
}
#endif

INSTANTIATE_TEST_SUITE_P(Attributes, SelfCheckRepair,
                         testing::Values(Wrong{"Owner", 1000, 0, 04755}, Wrong{"Group", 0, 1001, 04755},
                                         Wrong{"NoSetUserId", 0, 0, 0755},
                                         Wrong{"SetGroupIdToo", 0, 0, 06755}, Wrong{"StickyToo", 0, 0, 05755},
                                         Wrong{"WritableByAll", 0, 0, 04777}, Wrong{"NoPermissions", 0, 0, 0},
                                         Wrong{"Everything", 1000, 1001, 0644}),
                         [](const auto& test) { return test.param.name; });

TEST_F(SelfCheckAsRoot, LinksTargetIsExaminedAndRepairedAndTheLinkStays) {
  make(0, 0, 0755);
  const std::string link = directory_ / "link";
  ASSERT_EQ(symlink("tool", link.c_str()), 0);
  ASSERT_EQ(lchown(link.c_str(), 1000, 1000), 0);
  CapturedLog log;
  EXPECT_TRUE(Outcome(link).isNil());
  EXPECT_TRUE(Outcome(link).isNil());
  EXPECT_THAT(log.messages(), ElementsAre("Self-reparing complete", "Self-check passed"));
  expectAttributes(0, 0, 04755);
  EXPECT_EQ(StatusOf(link).st_uid, 1000U);
}

TEST_F(SelfCheckPath, PathThatNamesNothingFailsAtTheOwnerChange) {
  RunInChild([&] {
    ASSERT_EQ(chdir(directory_.path().c_str()), 0);
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    for (const std::string& path :
         {directory_ / "missing", std::string("dangling"), std::string("Zekara4MacTool"), std::string(),
          directory_ / "%s%n", std::string(100'000, 'x')}) {
      CapturedLog log;
      EXPECT_EQ(Outcome(path), RequestedIds());
      EXPECT_THAT(log.messages(), ElementsAre("Can't change owner on " + path));
    }
  });
}

TEST_F(SelfCheckAsRoot, UserWithoutRightsFailsAtTheOwnerChange) {
  make(0, 0, 0755);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    CapturedLog log;
    EXPECT_EQ(Outcome(path_), RequestedIds());
    EXPECT_THAT(log.messages(), ElementsAre("Can't change owner on " + path_));
  });
  expectAttributes(0, 0, 0755);
}

// Users may change the mode of their own files, but not the owner.
TEST_F(SelfCheckAsRoot, UserWithoutRightsFailsForAFileOfTheirOwnToo) {
  make(kOtherUser, kOtherUser, 0755);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_EQ(Outcome(path_), RequestedIds());
  });
  expectAttributes(kOtherUser, kOtherUser, 0755);
}

#ifdef __linux__
TEST_F(SelfCheckAsRoot, ReadOnlyFileSystemFailsAtTheOwnerChange) {
  if (!PrivateRoot::canMount()) GTEST_SKIP() << "the system allows no mount of the test's own";
  PrivateRoot::inside([] {
    WriteFile("/Library/tool", "");
    ASSERT_EQ(chmod("/Library/tool", 0755), 0);
    ASSERT_EQ(mount("/Library", "/Library", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, "/Library", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(Outcome("/Library/tool"), RequestedIds());
    EXPECT_EQ(ModeOf("/Library/tool"), 0755U);
  });
}
#endif

// A program that runs with rights that its caller lacks.
class SelfCheckPrivileged : public SelfCheckAsRoot {
 protected:
  void SetUp() override {
    SelfCheckAsRoot::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
    std::filesystem::copy_file(SELF_CHECK_PROBE, path_);
    ASSERT_EQ(chmod(path_.c_str(), 0755), 0);
  }

  struct Result {
    int status;
    std::string output;
    std::string log;
  };

  // Starts the probe from `path_`, or as `program`, with the path to check.
  Result run(
      const std::string& checked, const std::function<bool()>& prepare = [] { return true; },
      const std::string& program = {}) const {
    Pipe output;
    Pipe log;
    const pid_t child = StartChild([&] {
      dup2(output.input.get(), STDOUT_FILENO);
      dup2(log.input.get(), STDERR_FILENO);
      if (!prepare() || !BorrowRootsRights()) return 98;
      const char* const started = program.empty() ? path_.c_str() : program.c_str();
      execl(started, started, checked.c_str(), nullptr);
      return 97;
    });
    output.input.reset();
    log.input.reset();
    Result result = {0, ReadToEnd(output.output.get()), ReadToEnd(log.output.get())};
    result.status = WaitForChild(child);
    return result;
  }
  static std::string restoredState() { return std::to_string(kOtherUser) + " 0 0"; }
};

TEST_F(SelfCheckPrivileged, RunningFileIsRepaired) {
  for (const Wrong& wrong : {Wrong{"", 0, 0, 0755}, Wrong{"", 1000, 1001, 0755}, Wrong{"", 0, 0, 06755}}) {
    ASSERT_EQ(chown(path_.c_str(), wrong.owner, wrong.group), 0);
    ASSERT_EQ(chmod(path_.c_str(), wrong.mode), 0);
    const Result result = run(path_);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.log, testing::EndsWith("] Self-reparing complete\n"));
    EXPECT_EQ(result.output, restoredState());
    expectAttributes(0, 0, 04755);
  }
}

TEST_F(SelfCheckPrivileged, RunningFileIsRepairedThroughALink) {
  ASSERT_EQ(symlink("tool", (directory_ / "link").c_str()), 0);
  EXPECT_EQ(run(directory_ / "link").status, 0);
  expectAttributes(0, 0, 04755);
}

TEST_F(SelfCheckPrivileged, CorrectFileOfAnyPathPasses) {
  WriteFile(directory_ / "other", "");
  ASSERT_EQ(chmod((directory_ / "other").c_str(), 04755), 0);
  const Result result = run(directory_ / "other");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.log, testing::EndsWith("] Self-check passed\n"));
}

TEST_F(SelfCheckPrivileged, ForeignFileFailsAtTheOwnerChangeAndIsNotTouched) {
  std::filesystem::copy_file(path_, directory_ / "copy");
  WriteFile(directory_ / "private", "");
  ASSERT_EQ(chmod((directory_ / "private").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0666), 0);
  ASSERT_EQ(mkdir((directory_ / "directory").c_str(), 0755), 0);
  for (const char* name : {"copy", "private", "fifo", "directory"}) {
    ASSERT_EQ(chown((directory_ / name).c_str(), kOtherUser, kOtherUser), 0);
    const struct stat before = StatusOf(directory_ / name);
    const Result result = run(directory_ / name);
    EXPECT_EQ(result.status, 10) << name;
    EXPECT_THAT(result.log, testing::EndsWith("] Can't change owner on " + (directory_ / name) + "\n"));
    EXPECT_EQ(result.output, restoredState());
    const struct stat after = StatusOf(directory_ / name);
    EXPECT_EQ(after.st_uid, kOtherUser);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(ChangeTimeOf(after).tv_nsec, ChangeTimeOf(before).tv_nsec);
  }
  EXPECT_EQ(run(directory_ / "missing").status, 10);
  // A device of the test's own, because a broken self-check would change the machine's /dev/null.
  ASSERT_EQ(mknod((directory_ / "device").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
  EXPECT_EQ(run(directory_ / "device").status, 10);
  EXPECT_EQ(run("").status, 10);
}

#ifdef __linux__
TEST_F(SelfCheckPrivileged, FailuresOfTheTwoChangesAreToldApart) {
  Result result = run(path_, [] { return Fail(kOwnerCalls); });
  EXPECT_EQ(result.status, 10);
  EXPECT_EQ(result.output, restoredState());
  expectAttributes(0, 0, 0755);
  ASSERT_EQ(chown(path_.c_str(), 1000, 1000), 0);
  result = run(path_, [] { return Fail(kModeCalls); });
  EXPECT_EQ(result.status, 11);
  EXPECT_EQ(result.output, restoredState());
  expectAttributes(0, 0, 0755);
}

// An instance that was started before a withdrawal, and continues after it, must not arm the withdrawn file
// again.
TEST_F(SelfCheckPrivileged, RunningFileThatHasLostItsNameIsNotRepaired) {
  const Descriptor file = OpenAt(AT_FDCWD, path_.c_str(), O_RDONLY);
  ASSERT_TRUE(file.isOpen());
  const std::string nameless = "/proc/self/fd/0";
  const auto withdraw = [&] { return dup2(file.get(), STDIN_FILENO) == 0 && unlink(path_.c_str()) == 0; };
  const Result result = run(nameless, withdraw, nameless);
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.log, testing::EndsWith("] Can't change owner on /proc/self/fd/0\n"));
  struct stat after = {};
  ASSERT_TRUE(Examine(file, after));
  EXPECT_EQ(after.st_mode & 07777U, 0755U);
}
#endif

// The link may name the running file at the first look and another file at the second, or the other way
// round.
TEST_F(SelfCheckPrivileged, LinkThatIsSwitchedMeanwhileNeverChangesAnotherFile) {
  WriteFile(directory_ / "other", "");
  ASSERT_EQ(chmod((directory_ / "other").c_str(), 0755), 0);
  ASSERT_EQ(chown((directory_ / "other").c_str(), kOtherUser, kOtherUser), 0);
  ASSERT_EQ(symlink("tool", (directory_ / "link").c_str()), 0);
  const pid_t switcher = StartChild([&] {
    for (bool isTool = false;; isTool = !isTool) {
      if (symlink(isTool ? "tool" : "other", (directory_ / "next").c_str()) != 0) return 1;
      if (rename((directory_ / "next").c_str(), (directory_ / "link").c_str()) != 0) return 1;
    }
  });
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(chmod(path_.c_str(), 0755), 0);
    const int status = run(directory_ / "link").status;
    ASSERT_TRUE(status == 0 || status == 10) << status;
    ASSERT_EQ(StatusOf(directory_ / "other").st_uid, kOtherUser);
    ASSERT_EQ(ModeOf(directory_ / "other"), 0755U);
  }
  kill(switcher, SIGKILL);
  EXPECT_EQ(WaitForChild(switcher), 128 + SIGKILL);
}

}  // namespace
}  // namespace zekara::test
