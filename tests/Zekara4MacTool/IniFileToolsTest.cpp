#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacTool/IniFileTools.h"
#include "Zekara4MacTool/ProcessState.h"
#include "tests/support/Faults.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Plist Patch(const char* section, const char* key, Plist value) {
  return Plist::dictionary({{section, Plist::dictionary({{key, std::move(value)}})}});
}

class IniFileTools : public testing::Test {
 protected:
  void write(std::string_view text) const { WriteFile(path_, text); }
  std::string text() const { return ReadFile(path_); }

  // Returns the exception that patching raises as "name: reason", or an empty text.
  static std::string failure(const std::string& path, const Plist& patch) {
    try {
      PatchIniFile(path, patch);
    } catch (const NSException& exception) {
      return exception.name() + ": " + exception.reason();
    }
    return {};
  }
  std::string failure(const Plist& patch) const { return failure(path_, patch); }

  TemporaryDirectory directory_;
  std::string path_ = directory_ / "zekara32.ini";
};

constexpr const char* kCannotOpen = "PatchIniFile: can't open ini file";

struct Change {
  friend void PrintTo(const Change& change, std::ostream* out) { *out << change.name; }

  const char* name;
  const char* before;
  Plist patch;
  std::set<std::string> changed;
  const char* after;
  bool isStable = true;  // the same patch again changes nothing
};

class PatchIniFileTable : public IniFileTools, public testing::WithParamInterface<Change> {};

TEST_P(PatchIniFileTable, FileAndChangedSectionsAreAsExpected) {
  write(GetParam().before);
  const ZKAChangedSections changed = PatchIniFile(path_, GetParam().patch);
  EXPECT_EQ(std::set<std::string>(changed.begin(), changed.end()), GetParam().changed);
  EXPECT_EQ(text(), GetParam().after);
}

// Some values read back as something else: digits as a number, a section without keys as nothing. The same
// patch changes these again.
TEST_P(PatchIniFileTable, SamePatchAgainLeavesTheFile) {
  write(GetParam().before);
  PatchIniFile(path_, GetParam().patch);
  const std::string first = text();
  const ZKAChangedSections changed = PatchIniFile(path_, GetParam().patch);
  EXPECT_EQ(changed.empty(), GetParam().isStable);
  EXPECT_EQ(text(), first);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, PatchIniFileTable,
    testing::Values(
        Change{"SameValueStillRewritesTheFile",
               "; comment\n[MacOSWardex]\nIsActive=Yes\n",
               Patch("MacOSWardex", "IsActive", "Yes"),
               {},
               "[MacOSWardex]\nIsActive = Yes\n\n"},
        Change{"NewValue",
               "[UpdateD]\nInterval = 60\nMode = Auto\n",
               Patch("UpdateD", "Interval", 90),
               {"UpdateD"},
               "[UpdateD]\nInterval = 90\nMode = Auto\n\n"},
        Change{"NewKey",
               "[UpdateD]\nMode = Auto\n",
               Patch("UpdateD", "Interval", 90),
               {"UpdateD"},
               "[UpdateD]\nMode = Auto\nInterval = 90\n\n"},
        Change{"NewSection",
               "[UpdateD]\nMode = Auto\n",
               Patch("MacOSWardex", "IsActive", "No"),
               {"MacOSWardex"},
               "[UpdateD]\nMode = Auto\n\n[MacOSWardex]\nIsActive = No\n\n"},
        Change{
            "TwoSections",
            "[B]\nx = 1\n[A]\ny = 2\n",
            Plist::dictionary({{"A", Plist::dictionary({{"y", 3}})}, {"B", Plist::dictionary({{"x", 2}})}}),
            {"A", "B"},
            "[B]\nx = 2\n\n[A]\ny = 3\n\n"},
        Change{
            "OneOfTwoSections",
            "[B]\nx = 1\n[A]\ny = 2\n",
            Plist::dictionary({{"A", Plist::dictionary({{"y", 2}})}, {"B", Plist::dictionary({{"x", 2}})}}),
            {"B"},
            "[B]\nx = 2\n\n[A]\ny = 2\n\n"},
        Change{"SameNumberIsNoChange",
               "[UpdateD]\nInterval = 43200\n",
               Patch("UpdateD", "Interval", 43200),
               {},
               "[UpdateD]\nInterval = 43200\n\n"},
        Change{"StringOfDigitsIsAChange",
               "[UpdateD]\nInterval = 43200\n",
               Patch("UpdateD", "Interval", "43200"),
               {"UpdateD"},
               "[UpdateD]\nInterval = 43200\n\n",
               false},
        Change{"AbsentPatch", "[B]\nx=1;c\n", Plist(), {}, "[B]\nx = 1\n\n"},
        Change{"EmptyPatch", "[B]\nx=1;c\n", Plist::dictionary(), {}, "[B]\nx = 1\n\n"},
        Change{"EmptyFile", "", Patch("A", "b", "c d"), {"A"}, "[A]\nb = \"c d\"\n\n"},
        Change{"EmptySection", "", Plist::dictionary({{"A", Plist::dictionary()}}), {"A"}, "[A]\n\n", false},
        Change{"List",
               "[A]\np = x\n",
               Patch("A", "p", Plist::array({"/dev", "x", 3})),
               {"A"},
               "[A]\np = \"/dev\", x, 3\n\n"},
        Change{"Boolean", "[A]\np = 0\n", Patch("A", "p", true), {"A"}, "[A]\np = 1\n\n"}),
    [](const auto& test) { return test.param.name; });

// The next key is on the same line then, and is lost when the file is read again.
TEST_F(IniFileTools, EmptyListWritesNoLineEnd) {
  write("[A]\nlist = 1, 2\nnext = x\n");
  EXPECT_THAT(PatchIniFile(path_, Patch("A", "list", Plist::array())), ElementsAre("A"));
  EXPECT_EQ(text(), "[A]\nlist = next = x\n\n");
}

TEST_F(IniFileTools, MissingFileIsMadeReadOnlyWithThePatchsSections) {
  for (const mode_t mask : std::initializer_list<mode_t>{0, 022, 026, 027, 077, 0777}) {
    RunInChild([&] {
      umask(mask);
      unlink(path_.c_str());
      EXPECT_THAT(PatchIniFile(path_, Patch("A", "b", 1)), ElementsAre("A"));
      EXPECT_EQ(ModeOf(path_), 0444 & ~mask);
      chmod(path_.c_str(), 0444);
      EXPECT_EQ(text(), "[A]\nb = 1\n\n");
    });
  }
}

TEST_F(IniFileTools, ExistingFileKeepsItsModeOwnerAndPlace) {
  write("[A]\nb = 1\n");
  for (const mode_t mode : std::initializer_list<mode_t>{0644, 0444, 0600}) {
    if (!IsRoot() && mode == 0444) continue;  // only root may write it
    chmod(path_.c_str(), mode);
    const struct stat before = StatusOf(path_);
    PatchIniFile(path_, Patch("A", "b", mode));
    const struct stat after = StatusOf(path_);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(text(), "[A]\nb = " + std::to_string(mode) + "\n\n");
  }
}

TEST_F(IniFileTools, MissingDirectoryIsCannotOpen) {
  EXPECT_EQ(failure(directory_ / "missing/zekara32.ini", Patch("A", "b", 1)), kCannotOpen);
  EXPECT_FALSE(std::filesystem::exists(directory_ / "missing"));
}

TEST_F(IniFileTools, FileWithoutPermissionIsCannotOpenAndUnchanged) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  write("[A]\nb = 1\n");
  chmod(path_.c_str(), 0444);
  chmod(directory_.path().c_str(), 0755);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_EQ(failure(Patch("A", "b", 2)), kCannotOpen);
    EXPECT_EQ(failure(directory_ / "other.ini", Patch("A", "b", 2)), kCannotOpen);
  });
  EXPECT_EQ(text(), "[A]\nb = 1\n");
}

TEST_F(IniFileTools, WhatIsNotARegularFileIsCannotOpenAtOnce) {
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0666), 0);
  ASSERT_EQ(mkdir((directory_ / "directory").c_str(), 0755), 0);
  ASSERT_EQ(symlink("fifo", (directory_ / "linkToFifo").c_str()), 0);
  ASSERT_EQ(symlink("missing/file", (directory_ / "dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", (directory_ / "loop").c_str()), 0);
  for (const char* name : {"fifo", "directory", "linkToFifo", "dangling", "loop"}) {
    EXPECT_EQ(failure(directory_ / name, Patch("A", "b", 1)), kCannotOpen) << name;
  }
  EXPECT_EQ(failure("/dev/null", Patch("A", "b", 1)), kCannotOpen);
  EXPECT_EQ(failure("", Patch("A", "b", 1)), kCannotOpen);
}

TEST_F(IniFileTools, LinkToAFileIsFollowed) {
  WriteFile(directory_ / "target", "[A]\nb = 1\n");
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  PatchIniFile(path_, Patch("A", "b", 2));
  EXPECT_EQ(ReadFile(directory_ / "target"), "[A]\nb = 2\n\n");
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
}

TEST_F(IniFileTools, LinkToAMissingFileMakesIt) {
  ASSERT_EQ(symlink("target", path_.c_str()), 0);
  PatchIniFile(path_, Patch("A", "b", 2));
  EXPECT_EQ(ReadFile(directory_ / "target"), "[A]\nb = 2\n\n");
}

class PatchIniFileSyntax : public IniFileTools, public testing::WithParamInterface<const char*> {};

TEST_P(PatchIniFileSyntax, ErrorLeavesTheFileByteForByte) {
  write(GetParam());
  EXPECT_EQ(failure(Patch("A", "b", 2)), "ini-syntax: unexpected token");
  EXPECT_EQ(text(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Texts, PatchIniFileSyntax,
                         testing::Values("key before any section\n", "[A\nb = 1\n", "[A]\nb 1\n",
                                         "[A]\n= 1\n", "[A]\nb = 1\n]\n"));

TEST_F(IniFileTools, MergeFailureLeavesTheFileByteForByte) {
  constexpr std::string_view kText = "[A]\nb=1 ; kept as it is\n";
  for (const Plist& value :
       {Plist("text"), Plist(1), Plist(true), Plist::array({"x"}), Plist::data("x"), Plist::date(0)}) {
    write(kText);
    EXPECT_THAT(failure(Plist::dictionary({{"A", value}})),
                testing::StartsWith("NSInvalidArgumentException: "))
        << value.description();
    EXPECT_EQ(text(), kText) << value.description();
  }
  for (const Plist& value : {Plist(1), Plist(1.5), Plist(true), Plist::date(0)}) {
    write(kText);
    EXPECT_THAT(failure(Plist::dictionary({{"Unknown", value}})),
                testing::StartsWith("NSInvalidArgumentException: "))
        << value.description();
    EXPECT_EQ(text(), kText) << value.description();
  }
  for (const Plist& patch : {Plist("text"), Plist(1), Plist::array({"x"})}) {
    write(kText);
    EXPECT_THAT(failure(patch), testing::StartsWith("NSInvalidArgumentException: ")) << patch.description();
    EXPECT_EQ(text(), kText) << patch.description();
  }
}

TEST_F(IniFileTools, MergeFailureLeavesANewFileEmpty) {
  EXPECT_NE(failure(Plist::dictionary({{"A", 1}})), "");
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_EQ(text(), "");
}

TEST_F(IniFileTools, WriterFailureComesAfterTheTruncationAndLeavesTheFileEmpty) {
  for (const Plist& value :
       {Plist("text"), Plist(""), Plist::array({"x"}), Plist::array(), Plist::data("x")}) {
    write("[A]\nb = 1\n");
    EXPECT_THAT(failure(Plist::dictionary({{"Unknown", value}})),
                testing::StartsWith("NSInvalidArgumentException: "))
        << value.description();
    EXPECT_EQ(text(), "") << value.description();
  }
}

// Returns true if no process holds the lock and this process has no descriptor of the file left.
bool IsReleased(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

TEST_F(IniFileTools, FileIsClosedAndItsLockReleasedAfterSuccessAndAfterEveryFailure) {
  const int before = CountOpenDescriptors();
  write("[A]\nb = 1\n");
  PatchIniFile(path_, Patch("A", "b", 2));
  EXPECT_TRUE(IsReleased(path_));
  EXPECT_NE(failure(Plist::dictionary({{"A", "text"}})), "");
  EXPECT_TRUE(IsReleased(path_));
  EXPECT_NE(failure(Plist::dictionary({{"Unknown", "text"}})), "");
  EXPECT_TRUE(IsReleased(path_));
  write("syntax error");
  EXPECT_NE(failure(Plist()), "");
  EXPECT_TRUE(IsReleased(path_));
  EXPECT_EQ(CountOpenDescriptors(), before);
}

class PatchIniFileFault : public IniFileTools {
 protected:
  void SetUp() override { write(kOld); }

  static constexpr const char* kOld = "[A]\nb=1\n";
  static constexpr const char* kNew = "[A]\nb = 2\n\n";
};

#ifdef __linux__
TEST_F(PatchIniFileFault, FailureToLockIsCannotOpenAndLeavesTheFile) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_flock}, ENOLCK));
    EXPECT_EQ(failure(Patch("A", "b", 2)), kCannotOpen);
  });
  EXPECT_EQ(text(), kOld);
}

TEST_F(PatchIniFileFault, FailureToReadIsPassedOnAndLeavesTheFile) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_read, SYS_pread64}, EIO));
    EXPECT_EQ(failure(Patch("A", "b", 2)),
              std::string("NSFileHandleOperationException: cannot read: ") + std::strerror(EIO));
  });
  EXPECT_EQ(text(), kOld);
}

TEST_F(PatchIniFileFault, FailureToTruncateIsPassedOnAndLeavesTheFile) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_ftruncate}, EPERM));
    EXPECT_EQ(failure(Patch("A", "b", 2)),
              "NSFileHandleOperationException: cannot truncate: Operation not permitted");
  });
  EXPECT_EQ(text(), kOld);
}

TEST_F(PatchIniFileFault, FailureToSeekIsPassedOnAndLeavesTheFile) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_lseek}, EIO));
    EXPECT_EQ(failure(Patch("A", "b", 2)),
              std::string("NSFileHandleOperationException: cannot seek: ") + std::strerror(EIO));
  });
  EXPECT_EQ(text(), kOld);
}

TEST_F(PatchIniFileFault, FailureToWriteIsPassedOnAndLeavesTheFileEmpty) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_write, SYS_pwrite64}, ENOSPC));
    EXPECT_EQ(failure(Patch("A", "b", 2)),
              "NSFileHandleOperationException: cannot write: No space left on device");
  });
  EXPECT_EQ(text(), "");
}

TEST_F(PatchIniFileFault, FailureToFlushIsPassedOnAndLeavesTheNewFile) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_fsync, SYS_fdatasync}, EIO));
    EXPECT_EQ(failure(Patch("A", "b", 2)),
              std::string("NSFileHandleOperationException: cannot flush: ") + std::strerror(EIO));
  });
  EXPECT_EQ(text(), kNew);
}

TEST_F(PatchIniFileFault, FileSystemThatCannotFlushIsNotAFailure) {
  RunInChild([&] {
    ASSERT_TRUE(MakeSystemCallsFail({SYS_fsync, SYS_fdatasync}, EINVAL));
    EXPECT_EQ(failure(Patch("A", "b", 2)), "");
  });
  EXPECT_EQ(text(), kNew);
}
#endif

TEST_F(PatchIniFileFault, TextBeyondTheSizeLimitOfFilesIsRefusedBeforeTheTruncation) {
  RunInChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {.rlim_cur = 100, .rlim_max = 100};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_THAT(failure(Patch("A", "b", std::string(101, 'x').c_str())),
                testing::StartsWith("NSFileHandleOperationException: "));
    EXPECT_EQ(text(), kOld);
    EXPECT_EQ(failure(Patch("A", "b", 2)), "");
  });
  EXPECT_EQ(text(), kNew);
}

#ifdef __linux__
TEST_F(PatchIniFileFault, FullFileSystemLeavesABeginningOfTheNewText) {
  if (!PrivateRoot::canMount()) GTEST_SKIP() << "the system allows no file system of the test's own";
  PrivateRoot::inside([&] {
    ASSERT_EQ(mount("tmpfs", "/Library", "tmpfs", 0, "size=8192"), 0);
    const std::string path = "/Library/zekara32.ini";
    WriteFile(path, kOld);
    const std::string value(20'000, 'x');
    EXPECT_EQ(failure(path, Patch("A", "b", value.c_str())),
              "NSFileHandleOperationException: cannot write: No space left on device");
    const std::string expected = "[A]\nb = " + value + "\n\n";
    const std::string left = ReadFile(path);
    EXPECT_LT(left.size(), expected.size());
    EXPECT_GT(left.size(), 0U);
    EXPECT_TRUE(expected.starts_with(left));
    EXPECT_TRUE(IsReleased(path));
  });
}
#endif

// Another process that holds a lock on the file until release() is called.
class LockHolder {
 public:
  LockHolder(const std::string& path, int kind) {
    Pipe ready;
    process_ = StartChild([&] {
      const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
      char byte = flock(file.get(), kind) == 0 ? 'y' : 'n';
      end_.input.reset();
      if (::write(ready.input.get(), &byte, 1) != 1) return 1;
      return ::read(end_.output.get(), &byte, 1) == 0 ? 0 : 1;
    });
    char byte = 0;
    EXPECT_EQ(::read(ready.output.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'y');
  }
  void release() {
    end_.input.reset();
    EXPECT_EQ(WaitForChild(process_), 0);
  }
  int endDescriptor() const { return end_.input.get(); }

 private:
  Pipe end_;
  pid_t process_ = -1;
};

class PatchIniFileLock : public PatchIniFileFault, public testing::WithParamInterface<int> {};

TEST_P(PatchIniFileLock, LockOfAnotherProcessIsWaitedForThroughInterruptions) {
  LockHolder holder(path_, GetParam());
  const pid_t patcher = StartInterruptedChild([&] {
    close(holder.endDescriptor());
    return failure(Patch("A", "b", 2)).empty() ? 0 : 1;
  });
  EXPECT_EQ(text(), kOld);
  WriteFile(path_, "[A]\nb = 1\nc = added\n");
  holder.release();
  EXPECT_EQ(WaitForChild(patcher), 0);
  EXPECT_EQ(text(), "[A]\nb = 2\nc = added\n\n");
}

INSTANTIATE_TEST_SUITE_P(ExclusiveAndShared, PatchIniFileLock, testing::Values(LOCK_EX, LOCK_SH));

TEST_F(PatchIniFileFault, FileThatReplacesTheLockedOneMeanwhileIsPatchedInstead) {
  LockHolder holder(path_, LOCK_EX);
  const pid_t patcher = StartChild([&] {
    close(holder.endDescriptor());
    return failure(Patch("A", "b", 2)).empty() ? 0 : 1;
  });
  WaitUntilAsleep(patcher);
  std::filesystem::rename(path_, directory_ / "old");
  write("[A]\nb = 7\nc = 8\n");
  holder.release();
  EXPECT_EQ(WaitForChild(patcher), 0);
  EXPECT_EQ(text(), "[A]\nb = 2\nc = 8\n\n");
  EXPECT_EQ(ReadFile(directory_ / "old"), kOld);
}

TEST_F(PatchIniFileFault, FileThatIsRemovedMeanwhileIsMadeAnew) {
  LockHolder holder(path_, LOCK_EX);
  const pid_t patcher = StartChild([&] {
    close(holder.endDescriptor());
    return failure(Patch("A", "b", 2)).empty() ? 0 : 1;
  });
  WaitUntilAsleep(patcher);
  unlink(path_.c_str());
  holder.release();
  EXPECT_EQ(WaitForChild(patcher), 0);
  EXPECT_EQ(text(), kNew);
}

TEST_F(IniFileTools, SignalsAreBlockedOnceTheFileIsLockedUntilTheTransactionEnds) {
  RunInChild([&] {
    const auto isBlocked = [] {
      sigset_t blocked;
      sigemptyset(&blocked);
      pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
      return sigismember(&blocked, SIGTERM) == 1;
    };
    {
      Transaction transaction;
      PatchIniFile(path_, Patch("A", "b", 1), transaction);
      EXPECT_TRUE(isBlocked());
    }
    EXPECT_FALSE(isBlocked());
    // The file was created read-only, so only root could change it again.
    ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
    {
      Transaction transaction;
      EXPECT_THROW(PatchIniFile(path_, Plist::dictionary({{"A", 1}}), transaction), NSException);
      EXPECT_TRUE(isBlocked());
    }
    {
      Transaction transaction;
      EXPECT_THROW(PatchIniFile(directory_ / "missing/file", Plist(), transaction), NSException);
      EXPECT_FALSE(isBlocked());
    }
  });
}

TEST_F(IniFileTools, ConcurrentPatchesAreAllKept) {
  constexpr int kProcesses = 8;
  constexpr int kRounds = 20;
  std::vector<pid_t> children;
  if (!IsRoot()) write("");  // because only root may change the file that the first patch creates
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(StartChild([&] {
      for (int round = 0; round < kRounds; ++round) {
        const std::string key = "key" + std::to_string(process) + "x" + std::to_string(round);
        const Plist section = Plist::dictionary();
        section.setObject_forKey(round, Plist(key));
        PatchIniFile(path_, Plist::dictionary({{"A", section}}));
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(WaitForChild(child), 0);
  const std::string result = text();
  EXPECT_EQ(std::count(result.begin(), result.end(), '='), kProcesses * kRounds);
}

}  // namespace
}  // namespace zekara::test
