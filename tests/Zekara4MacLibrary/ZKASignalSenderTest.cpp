#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PortableFoundation/Descriptor.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Signal 0 has no effect. Pid files that must reach no process are tried with it, so that a failing test
// harms none.
constexpr int kHarmless = 0;

std::string Complaint(int signal, const std::string& path) {
  return "Can't signal " + std::to_string(signal) + " to " + path;
}

// Returns the ID of a process that has ended.
pid_t ExitedProcess() {
  const pid_t pid = StartChild([] { return 0; });
  WaitForChild(pid);
  return pid;
}

void MakeSocket(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const Descriptor socketFile(socket(AF_UNIX, SOCK_STREAM, 0));
  ASSERT_EQ(bind(socketFile.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
}

// Returns true if the path names anything, a dangling link included.
bool IsThere(const std::string& path) {
  return std::filesystem::exists(std::filesystem::symlink_status(path));
}

class ZKASendSignalPidFile : public testing::Test {
 protected:
  // Sends to a pid file with this content, and expects exactly one complaint.
  void expectFailure(std::string_view content) {
    SCOPED_TRACE(std::string(content.substr(0, 40)));
    const std::string path = directory / "pid";
    WriteFile(path, content);
    expectFailureAt(path);
    EXPECT_TRUE(IsThere(path)) << "the file that is named is never removed";
  }
  void expectFailureAt(const std::string& path) {
    const CapturedLog capture;
    EXPECT_FALSE(ZKASendSignal(path, kHarmless));
    EXPECT_THAT(capture.messages(), ElementsAre(Complaint(kHarmless, path)));
  }
  // Does the same as a user without rights. Only root can become one.
  void expectFailureAsAnotherUser(const std::string& path) {
    ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
    const CapturedLog capture;
    RunInChild([&] {
      ASSERT_TRUE(BecomeOtherUser());
      EXPECT_FALSE(ZKASendSignal(path, kHarmless));
    });
    EXPECT_THAT(capture.messages(), ElementsAre(Complaint(kHarmless, path)));
  }
  // Sends to a pid file with this content, and expects the child to receive the signal.
  void expectSuccess(const std::string& content, StandIn& child) {
    SCOPED_TRACE(content.substr(0, 40));
    const std::string path = directory / "pid";
    WriteFile(path, content);
    const CapturedLog capture;
    EXPECT_TRUE(ZKASendSignal(path, SIGHUP));
    EXPECT_EQ(child.signals(), std::set{SIGHUP});
    EXPECT_THAT(capture.messages(), IsEmpty());
  }

  TemporaryDirectory directory;
};

struct PidTextCase {
  const char* name;
  std::string before;
  std::string after;
};

void PrintTo(const PidTextCase& one, std::ostream* out) {
  *out << one.name;
}

class ZKASendSignalText : public ZKASendSignalPidFile, public testing::WithParamInterface<PidTextCase> {};

TEST_P(ZKASendSignalText, SignalsTheProcess) {
  StandIn child;
  expectSuccess(GetParam().before + child.pidText() + GetParam().after, child);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ZKASendSignalText,
    testing::Values(PidTextCase{"PlainNumber", "", ""}, PidTextCase{"NumberAndALineEnd", "", "\n"},
                    PidTextCase{"BlanksBeforeTheNumber", "  ", "\n"},
                    PidTextCase{"LineEndsAndTabsBefore", "\r\n\t\v\f", ""},
                    PidTextCase{"LettersBehindTheNumber", "", "abc"},
                    PidTextCase{"BlankAndMoreTextBehind", "", " more 5"}, PidTextCase{"PlusSign", "+", "\n"},
                    PidTextCase{"LeadingZeros", "000000000000000000000", "\n"},
                    PidTextCase{"ZeroByteBehindTheNumber", "", "\0009"s},
                    PidTextCase{"MinusBehindTheNumber", "", "-1"},
                    PidTextCase{"AMebibyteOfBlanksBefore", std::string(1 << 20, ' '), "\n"},
                    PidTextCase{"NumberAcrossBlocksOfTheReader", std::string(4093, '\n'), "\n"},
                    PidTextCase{"AMebibyteBehind", "", "\n" + std::string(1 << 20, '9')}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZKASendSignalPidFile, EverySignalNumberIsPassedOn) {
  for (const int signal : {SIGHUP, SIGTERM, SIGUSR1, SIGWINCH}) {
    StandIn child;
    WriteFile(directory / "pid", child.pidText());
    EXPECT_TRUE(ZKASendSignal(directory / "pid", signal));
    EXPECT_EQ(child.signals(), std::set{signal});
  }
}

TEST_F(ZKASendSignalPidFile, TextWithoutAPositiveNumberSignalsNoProcess) {
  for (const char* text :
       {"", "0", "0\n", "-1", "-1\n", "- 1", "abc", "\n", "  ", "+", "-", "x1", "--1", "+-1", "0x1", ".1"}) {
    expectFailure(text);
  }
}

TEST_F(ZKASendSignalPidFile, NumberBeyondThirtyTwoBitsIsClampedAndDoesNotWrap) {
  // Modulo 2^32 or 2^64, each of them is 1 or this process.
  for (const char* text :
       {"4294967297", "-4294967295", "18446744073709551617", "-2147483649", "99999999999999999999999"}) {
    expectFailure(text);
  }
  expectFailure(std::to_string((1LL << 32) + getpid()));
  expectFailure(std::string(100000, '9'));
}

TEST_F(ZKASendSignalPidFile, ByteBeyondAsciiAnywhereMakesTheFileHoldNoNumber) {
  const std::string pid = std::to_string(getpid());
  expectFailure("\x80" + pid);
  expectFailure(pid + "\n\xC3\xA4");
  expectFailure(pid + "\n" + std::string(100000, ' ') + "\xFF");
  expectFailure("\xEF\xBB\xBF" + pid);
}

TEST_F(ZKASendSignalPidFile, MissingFileIsLoggedWithThePathAsItWasPassed) {
  expectFailureAt(directory / "missing");
  expectFailureAt("relative/%s%n%d/missing");
  expectFailureAt("");
}

TEST_F(ZKASendSignalPidFile, SignalNumberAndPathStandInTheComplaint) {
  const CapturedLog capture;
  EXPECT_FALSE(ZKASendSignal(directory / "UpdateD.pid", SIGHUP));
  EXPECT_FALSE(ZKASendSignal(directory / "FileD.pid", SIGTERM));
  EXPECT_THAT(capture.messages(), ElementsAre("Can't signal 1 to " + directory / "UpdateD.pid",
                                              "Can't signal 15 to " + directory / "FileD.pid"));
}

TEST_F(ZKASendSignalPidFile, ProcessThatHasExitedIsOneComplaintAndTheFileStays) {
  expectFailure(std::to_string(ExitedProcess()));
}

TEST_F(ZKASendSignalPidFile, SignalThatDoesNotExistIsAComplaint) {
  WriteFile(directory / "pid", std::to_string(getpid()));
  const CapturedLog capture;
  EXPECT_FALSE(ZKASendSignal(directory / "pid", 12345));
  EXPECT_THAT(capture.messages(), ElementsAre(Complaint(12345, directory / "pid")));
}

TEST_F(ZKASendSignalPidFile, ProcessOfAnotherUserIsNotSignalledByOneWhoMayNot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, to become another user";
  WriteFile(directory / "pid", std::to_string(getpid()));
  expectFailureAsAnotherUser(directory / "pid");
}

TEST_F(ZKASendSignalPidFile, FileThatMayNotBeReadHoldsNoNumber) {
  StandIn child;
  WriteFile(directory / "pid", child.pidText());
  ASSERT_EQ(chmod((directory / "pid").c_str(), 0), 0);
  if (geteuid() == 0) {
    expectFailureAsAnotherUser(directory / "pid");
  } else {
    expectFailureAt(directory / "pid");
  }
}

TEST_F(ZKASendSignalPidFile, LinkIsFollowed) {
  StandIn child;
  WriteFile(directory / "target", child.pidText());
  std::filesystem::create_symlink("target", directory / "link");
  EXPECT_TRUE(ZKASendSignal(directory / "link", SIGTERM));
  EXPECT_EQ(child.signals(), std::set{SIGTERM});
}

TEST_F(ZKASendSignalPidFile, LinkThatLeadsNowhereOrInACircleHoldsNoNumber) {
  std::filesystem::create_symlink("missing", directory / "dangling");
  std::filesystem::create_symlink("circle", directory / "circle");
  expectFailureAt(directory / "dangling");
  expectFailureAt(directory / "circle");
}

TEST_F(ZKASendSignalPidFile, WhatIsNotARegularFileHoldsNoNumberAndNothingHangs) {
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  MakeSocket(directory / "socket");
  for (const std::string& path :
       {directory / "fifo", directory / "socket", directory.path(), "/dev/zero"s, "/dev/null"s}) {
    expectFailureAt(path);
  }
}

TEST_F(ZKASendSignalPidFile, FifoWithAWriterIsNotReadEither) {
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  const Descriptor both(open((directory / "fifo").c_str(), O_RDWR | O_CLOEXEC));
  const std::string text = std::to_string(getpid()) + "\n";
  ASSERT_EQ(WriteAll(both.get(), text), 0);
  expectFailureAt(directory / "fifo");
}

#ifdef __APPLE__
constexpr long kRusageMebibyte = 1 << 20;  // ru_maxrss counts bytes
#else
constexpr long kRusageMebibyte = 1 << 10;  // ru_maxrss counts kibibytes
#endif

TEST_F(ZKASendSignalPidFile, HugeFileNeedsNoMemory) {
  StandIn child;
  const std::string path = directory / "pid";
  WriteFile(path, child.pidText() + "\n");
  ASSERT_EQ(truncate(path.c_str(), 128 << 20), 0);
  rusage before = {};
  getrusage(RUSAGE_SELF, &before);
  EXPECT_TRUE(ZKASendSignal(path, SIGHUP));
  rusage after = {};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(child.signals(), std::set{SIGHUP});
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * kRusageMebibyte);
}

// The front-end directory is fixed.
class ZKASendSignalFrontEnds : public PrivateRoot {
 protected:
  static void inside(const std::function<void()>& body) {
    PrivateRoot::inside([&] {
      std::filesystem::create_directory("/var/outside");
      body();
    });
  }

  void makeFrontEnd() { std::filesystem::create_directory(frontEnd); }
  std::string entry(const std::string& name) const { return frontEnd + "/" + name; }
  std::string registerProcess(const std::string& name, pid_t pid) {
    WriteFile(entry(name), std::to_string(pid) + "\n");
    return entry(name);
  }

  // Sends the signal and stores the log in `messages`.
  int send(int signal) {
    const CapturedLog capture;
    const int count = ZKASendSignalToGUI(signal);
    messages = capture.messages();
    return count;
  }

  const std::string frontEnd = "/var/zekara/run/frontEnd";
  std::vector<std::string> messages;
};

TEST_F(ZKASendSignalFrontEnds, MissingDirectoryGivesZeroAndNoComplaint) {
  inside([&] {
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_THAT(messages, IsEmpty());
  });
}

TEST_F(ZKASendSignalFrontEnds, EmptyDirectoryGivesZero) {
  inside([&] {
    makeFrontEnd();
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_TRUE(IsThere(frontEnd));
  });
}

TEST_F(ZKASendSignalFrontEnds, FileOrLinkInPlaceOfTheDirectoryGivesZero) {
  inside([&] {
    WriteFile(frontEnd, std::to_string(getpid()));
    EXPECT_EQ(send(kHarmless), 0);
    unlink(frontEnd.c_str());
    WriteFile("/var/outside/ag1", std::to_string(getpid()));
    std::filesystem::create_symlink("/var/outside", frontEnd);
    EXPECT_EQ(send(kHarmless), 0);
    EXPECT_THAT(messages, IsEmpty());
  });
}

TEST_F(ZKASendSignalFrontEnds, LiveProcessIsSignalledStaleOneRemovedAndAnyOtherEntryLeft) {
  inside([&] {
    makeFrontEnd();
    StandIn live;
    registerProcess("ag1", live.pid());
    registerProcess("cc2", ExitedProcess());
    registerProcess("xy3", ExitedProcess());
    EXPECT_EQ(send(SIGHUP), 1);
    EXPECT_EQ(live.signals(), std::set{SIGHUP});
    EXPECT_THAT(messages, ElementsAre(Complaint(SIGHUP, entry("cc2"))));
    EXPECT_TRUE(IsThere(entry("ag1")));
    EXPECT_FALSE(IsThere(entry("cc2")));
    EXPECT_TRUE(IsThere(entry("xy3")));
  });
}

TEST_F(ZKASendSignalFrontEnds, LiveProcessesOfBothPrefixesAreCountedAndGetTheSignal) {
  inside([&] {
    makeFrontEnd();
    StandIn first;
    StandIn second;
    registerProcess("agent.pid", first.pid());
    registerProcess("ccc", second.pid());
    registerProcess("ag-stale", ExitedProcess());
    EXPECT_EQ(send(SIGTERM), 2);
    EXPECT_EQ(first.signals(), std::set{SIGTERM});
    EXPECT_EQ(second.signals(), std::set{SIGTERM});
  });
}

TEST_F(ZKASendSignalFrontEnds, PrefixIsMatchedLiterally) {
  inside([&] {
    makeFrontEnd();
    for (const char* name : {"Agent.pid", "AG", "Cc", "a", "c", "xag", "ac", "ca", " ag", ".ag", "g"}) {
      registerProcess(name, ExitedProcess());
    }
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_TRUE(IsThere(entry("Agent.pid")));
    for (const char* name : {"ag", "cc"}) registerProcess(name, getpid());
    EXPECT_EQ(send(kHarmless), 2);
  });
}

TEST_F(ZKASendSignalFrontEnds, EntryBelowAnotherDirectoryIsLeftAlone) {
  inside([&] {
    makeFrontEnd();
    std::filesystem::create_directory(entry("sub"));
    registerProcess("sub/agent.pid", ExitedProcess());
    std::filesystem::create_directory(entry("sub/cc"));
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_THAT(messages, IsEmpty());
    EXPECT_TRUE(IsThere(entry("sub/agent.pid")));
    EXPECT_TRUE(IsThere(entry("sub/cc")));
  });
}

TEST_F(ZKASendSignalFrontEnds, DirectoryThatCountsAsARegistrationIsRemovedWithItsContent) {
  inside([&] {
    makeFrontEnd();
    StandIn unreached;
    std::filesystem::create_directory(entry("agents"));
    std::filesystem::create_directory(entry("agents/deeper"));
    registerProcess("agents/agent.pid", unreached.pid());
    registerProcess("agents/deeper/cc", unreached.pid());
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_THAT(messages, ElementsAre(Complaint(SIGHUP, entry("agents"))));
    EXPECT_FALSE(IsThere(entry("agents")));
    EXPECT_THAT(unreached.signals(), IsEmpty()) << "what lay below the removed directory is not visited";
  });
}

TEST_F(ZKASendSignalFrontEnds, EveryKindOfFailureRemovesTheRegistration) {
  inside([&] {
    makeFrontEnd();
    WriteFile(entry("ag-empty"), "");
    WriteFile(entry("ag-zero"), "0");
    WriteFile(entry("ag-negative"), "-1");
    WriteFile(entry("cc-text"), "no number");
    WriteFile(entry("cc-beyond-ascii"), std::to_string(getpid()) + "\xC3\xA4");
    ASSERT_EQ(mkfifo(entry("ag-fifo").c_str(), 0600), 0);
    MakeSocket(entry("cc-socket"));
    std::filesystem::create_symlink("missing", entry("ag-dangling"));
    std::filesystem::create_symlink("ag-circle", entry("ag-circle"));
    EXPECT_EQ(send(kHarmless), 0);
    EXPECT_EQ(messages.size(), 9U);
    EXPECT_EQ(rmdir(frontEnd.c_str()), 0) << "something was left in it";
  });
}

TEST_F(ZKASendSignalFrontEnds, LinkToAPidFileOutsideIsReadAndStays) {
  inside([&] {
    makeFrontEnd();
    StandIn live;
    WriteFile("/var/outside/pid", live.pidText());
    std::filesystem::create_symlink("/var/outside/pid", entry("ag-link"));
    EXPECT_EQ(send(SIGHUP), 1);
    EXPECT_EQ(live.signals(), std::set{SIGHUP});
    EXPECT_TRUE(IsThere(entry("ag-link")));
  });
}

TEST_F(ZKASendSignalFrontEnds, RemovedLinkLeavesItsTargetAlone) {
  inside([&] {
    makeFrontEnd();
    WriteFile("/var/outside/pid", std::to_string(ExitedProcess()));
    std::filesystem::create_directory("/var/outside/directory");
    WriteFile("/var/outside/directory/ag-file", std::to_string(getpid()));
    std::filesystem::create_symlink("/var/outside/pid", entry("ag-file"));
    std::filesystem::create_symlink("/var/outside/directory", entry("ag-directory"));
    EXPECT_EQ(send(kHarmless), 0);
    EXPECT_EQ(rmdir(frontEnd.c_str()), 0) << "something was left in it";
    EXPECT_TRUE(IsThere("/var/outside/pid"));
    EXPECT_TRUE(IsThere("/var/outside/directory/ag-file"));
  });
}

TEST_F(ZKASendSignalFrontEnds, LinksInARemovedDirectoryAreNotFollowed) {
  inside([&] {
    makeFrontEnd();
    WriteFile("/var/outside/kept", "kept");
    std::filesystem::create_directory(entry("agents"));
    std::filesystem::create_symlink("/var/outside", entry("agents/absolute"));
    std::filesystem::create_symlink("../../../../outside", entry("agents/relative"));
    std::filesystem::create_symlink(".", entry("agents/itself"));
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_FALSE(IsThere(entry("agents")));
    EXPECT_EQ(ReadFile("/var/outside/kept"), "kept");
  });
}

TEST_F(ZKASendSignalFrontEnds, NamesOfAnyBytesAreServed) {
  inside([&] {
    makeFrontEnd();
    const std::string names[] = {"ag\nnewline",   "cc\xFF\xFE", "ag" + std::string(253, 'x'),
                                 "cc \t\x01\x7F", "ag%s%n",     "cc'\"\\$(x)"};
    for (const std::string& name : names) registerProcess(name, getpid());
    EXPECT_EQ(send(kHarmless), 6);
    EXPECT_THAT(messages, IsEmpty());
    for (const std::string& name : names) registerProcess(name, 0);
    EXPECT_EQ(send(kHarmless), 0);
    EXPECT_EQ(rmdir(frontEnd.c_str()), 0) << "something was left in it";
  });
}

TEST_F(ZKASendSignalFrontEnds, DirectoriesOfOddNamesAreRemoved) {
  inside([&] {
    makeFrontEnd();
    std::string path = entry("ag\n");
    std::filesystem::create_directory(path);
    for (const std::string& name : {"\xFF"s, "..."s, " "s, std::string(255, 'y')}) {
      path += "/" + name;
      std::filesystem::create_directory(path);
    }
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_EQ(rmdir(frontEnd.c_str()), 0) << "something was left in it";
  });
}

TEST_F(ZKASendSignalFrontEnds, DeepTreeIsRemovedWithFewOpenFiles) {
  inside([&] {
    makeFrontEnd();
    Descriptor level(open(frontEnd.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const char* name = "ag";
    for (int depth = 0; depth < 5000; ++depth) {
      ASSERT_EQ(mkdirat(level.get(), name, 0755), 0);
      Descriptor next = OpenAt(level.get(), name, O_RDONLY | O_DIRECTORY);
      ASSERT_TRUE(next.isOpen());
      const Descriptor file = OpenAt(next.get(), "file", O_CREAT | O_WRONLY, 0644);
      ASSERT_TRUE(file.isOpen());
      level = std::move(next);
      name = "a-directory-whose-path-soon-is-longer-than-any-path-may-be";
    }
    level.reset();
    const Descriptor lowestFree(open("/", O_RDONLY | O_CLOEXEC));
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    few.rlim_cur = static_cast<rlim_t>(lowestFree.get()) + 10;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const int count = send(SIGHUP);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(count, 0);
    EXPECT_THAT(messages, ElementsAre(Complaint(SIGHUP, entry("ag"))));
    EXPECT_EQ(rmdir(frontEnd.c_str()), 0) << "something was left in it";
  });
}

TEST_F(ZKASendSignalFrontEnds, ManyRegistrationsAreAllServed) {
  inside([&] {
    makeFrontEnd();
    for (int i = 0; i < 500; ++i) {
      registerProcess("ag" + std::to_string(i), getpid());
      registerProcess("cc" + std::to_string(i), 0);
    }
    EXPECT_EQ(send(kHarmless), 500);
    EXPECT_EQ(messages.size(), 500U);
    EXPECT_EQ(send(kHarmless), 500);
    EXPECT_THAT(messages, IsEmpty());
  });
}

TEST_F(ZKASendSignalFrontEnds, HugeRegistrationIsRead) {
  inside([&] {
    makeFrontEnd();
    registerProcess("ag1", getpid());
    ASSERT_EQ(truncate(entry("ag1").c_str(), 64 << 20), 0);
    EXPECT_EQ(send(kHarmless), 1);
  });
}

TEST_F(ZKASendSignalFrontEnds, SameProcessRegisteredTwiceIsSignalledTwice) {
  inside([&] {
    makeFrontEnd();
    registerProcess("ag1", getpid());
    ASSERT_EQ(link(entry("ag1").c_str(), entry("cc1").c_str()), 0);
    EXPECT_EQ(send(kHarmless), 2);
  });
}

#ifdef __linux__
// Mounts a file system, which keeps the directory above it from being removed.
void MountIn(const std::string& path) {
  std::filesystem::create_directory(path);
  ASSERT_EQ(mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0755"), 0) << path;
}

void MakeReadOnly(const std::string& path) {
  ASSERT_EQ(mount(nullptr, path.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << path;
}

TEST_F(ZKASendSignalFrontEnds, DirectoryThatCannotBeRemovedIsEmptiedAsFarAsCanBe) {
  if (!canMount()) GTEST_SKIP() << "the system allows no mount of the test's own";
  inside([&] {
    makeFrontEnd();
    std::filesystem::create_directory(entry("agents"));
    WriteFile(entry("agents/file"), "");
    MountIn(entry("agents/mount"));
    WriteFile(entry("agents/mount/file"), "");
    EXPECT_EQ(send(SIGHUP), 0);
    EXPECT_TRUE(IsThere(entry("agents/mount")));
    EXPECT_FALSE(IsThere(entry("agents/file")));
    EXPECT_FALSE(IsThere(entry("agents/mount/file")));
    EXPECT_THAT(messages,
                ElementsAre(Complaint(SIGHUP, entry("agents")), Complaint(SIGHUP, entry("agents/mount"))));
  });
}

TEST_F(ZKASendSignalFrontEnds, ContentsOfADirectoryThatCannotBeRemovedAreTriedAsRegistrations) {
  if (!canMount()) GTEST_SKIP() << "the system allows no mount of the test's own";
  inside([&] {
    makeFrontEnd();
    StandIn live;
    std::filesystem::create_directory(entry("agents"));
    MountIn(entry("agents/mount"));
    registerProcess("agents/mount/any-name", live.pid());
    registerProcess("agents/mount/stale", ExitedProcess());
    MakeReadOnly(entry("agents/mount"));
    EXPECT_EQ(send(SIGHUP), 1);
    EXPECT_EQ(live.signals(), std::set{SIGHUP});
    EXPECT_TRUE(IsThere(entry("agents/mount/any-name")));
    EXPECT_TRUE(IsThere(entry("agents/mount/stale"))) << "on a file system that cannot be changed";
    EXPECT_THAT(messages, testing::UnorderedElementsAre(Complaint(SIGHUP, entry("agents")),
                                                        Complaint(SIGHUP, entry("agents/mount")),
                                                        Complaint(SIGHUP, entry("agents/mount/stale"))));
  });
}

TEST_F(ZKASendSignalFrontEnds, RemovalThatFailsIsNotLogged) {
  if (!canMount()) GTEST_SKIP() << "the system allows no mount of the test's own";
  inside([&] {
    MountIn(frontEnd);
    registerProcess("ag1", getpid());
    registerProcess("cc2", ExitedProcess());
    MakeReadOnly(frontEnd);
    EXPECT_EQ(send(kHarmless), 1);
    EXPECT_TRUE(IsThere(entry("cc2")));
    EXPECT_THAT(messages, ElementsAre(Complaint(kHarmless, entry("cc2"))));
  });
}
#endif

TEST_F(ZKASendSignalFrontEnds, FilesAreReadAfreshAtEveryCall) {
  inside([&] {
    makeFrontEnd();
    registerProcess("ag1", getpid());
    EXPECT_EQ(send(kHarmless), 1);
    StandIn live;
    registerProcess("ag1", live.pid());
    EXPECT_EQ(send(SIGUSR1), 1);
    EXPECT_EQ(live.signals(), std::set{SIGUSR1});
  });
}

}  // namespace
}  // namespace zekara::test
