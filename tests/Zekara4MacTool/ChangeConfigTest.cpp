#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/ChangeConfig.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Plist Section(const char* name, const char* key, const Plist& value) {
  return Plist::dictionary({{name, Plist::dictionary({{key, value}})}});
}

Plist BothSections() {
  return Plist::dictionary({{"UpdateD", Plist::dictionary({{"Interval", 60}})},
                            {"MacOSWardex", Plist::dictionary({{"IsActive", "No"}})}});
}

// Returns the reason of the exception that the command raises, or an empty text.
std::string Failure(const Plist& patch) {
  try {
    ChangeConfigCmd(patch);
  } catch (const NSException& exception) {
    return exception.reason();
  }
  return {};
}

struct Signalled {
  const char* name;
  const char* before;
  Plist patch;
  bool isFileDSignalled;
  bool isUpdateDSignalled;
};

class ChangeConfigSignals : public PrivateRoot, public testing::WithParamInterface<Signalled> {};

TEST_P(ChangeConfigSignals, DaemonsConcernedGetSignal1AndNoOther) {
  inside([] {
    WriteFile(kConfigurationFile, GetParam().before);
    StandIn fileD(kFileDPidFile);
    StandIn updateD(kUpdateDPidFile);
    CapturedLog log;
    ChangeConfigCmd(GetParam().patch);
    EXPECT_EQ(log.text(), "");
    const std::set<int> none;
    EXPECT_EQ(fileD.signals(), GetParam().isFileDSignalled ? std::set{SIGHUP} : none);
    EXPECT_EQ(updateD.signals(), GetParam().isUpdateDSignalled ? std::set{SIGHUP} : none);
  });
}

INSTANTIATE_TEST_SUITE_P(
    Patches, ChangeConfigSignals,
    testing::Values(Signalled{"FileMonitorChanged", "", Section("MacOSWardex", "IsActive", "Yes"), true,
                              false},
                    Signalled{"FileMonitorUnchanged", "[MacOSWardex]\nIsActive = Yes\n",
                              Section("MacOSWardex", "IsActive", "Yes"), true, false},
                    Signalled{"FileMonitorWithoutKeys", "",
                              Plist::dictionary({{"MacOSWardex", Plist::dictionary()}}), true, false},
                    Signalled{"UpdaterChanged", "[UpdateD]\nInterval = 43200\n",
                              Section("UpdateD", "Interval", 60), false, true},
                    Signalled{"UpdaterUnchanged", "[UpdateD]\nInterval = 43200\n",
                              Section("UpdateD", "Interval", 43200), false, false},
                    Signalled{"UpdaterDigitsAsText", "[UpdateD]\nInterval = 43200\n",
                              Section("UpdateD", "Interval", "43200"), false, true},
                    Signalled{"Both", "", BothSections(), true, true},
                    Signalled{"AnotherSection", "", Section("Daemon", "User", "root"), false, false},
                    Signalled{"AnotherLetterCase", "", Section("updated", "Interval", 60), false, false},
                    Signalled{"Absent", "[UpdateD]\nInterval = 43200\n", Plist(), false, false}),
    [](const auto& test) { return test.param.name; });

class ChangeConfigCommand : public PrivateRoot {};

TEST_F(ChangeConfigCommand, FileMonitorIsSignalledBeforeTheUpdater) {
  inside([] {
    CapturedLog log;
    ChangeConfigCmd(BothSections());
    EXPECT_THAT(log.messages(), ElementsAre("Can't signal 1 to /var/zekara/run/FileD.pid",
                                            "Can't signal 1 to /var/zekara/run/UpdateD.pid"));
  });
}

TEST_F(ChangeConfigCommand, DaemonThatCannotBeSignalledIsLoggedAndTheOtherStillTried) {
  inside([] {
    WriteFile(kFileDPidFile, "0\n");
    StandIn updateD(kUpdateDPidFile);
    CapturedLog log;
    ChangeConfigCmd(BothSections());
    EXPECT_THAT(log.messages(), ElementsAre("Can't signal 1 to /var/zekara/run/FileD.pid"));
    EXPECT_EQ(updateD.signals(), std::set{SIGHUP});
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 60\n\n[MacOSWardex]\nIsActive = No\n\n");
  });
}

// The file monitor's pid file holds the tool's own ID. The signal ends the tool, but only after the updater
// has been signalled.
TEST_F(ChangeConfigCommand, SignalToTheToolItselfWaitsUntilEveryDaemonIsSignalled) {
  inside([] {
    StandIn updateD(kUpdateDPidFile);
    const pid_t tool = StartChild([] {
      WriteFile(kFileDPidFile, std::to_string(getpid()));
      ChangeConfigCmd(BothSections());
      return 0;
    });
    EXPECT_EQ(WaitForChild(tool), 128 + SIGHUP);
    EXPECT_EQ(updateD.signals(), std::set{SIGHUP});
  });
}

TEST_F(ChangeConfigCommand, MissingFileIsMadeReadOnly) {
  inside([] {
    CapturedLog log;
    ChangeConfigCmd(Section("Daemon", "User", "root"));
    EXPECT_EQ(ReadFile(kConfigurationFile), "[Daemon]\nUser = root\n\n");
    EXPECT_EQ(ModeOf(kConfigurationFile), 0444U);
  });
}

TEST_F(ChangeConfigCommand, AbsentPatchRewritesTheFile) {
  inside([] {
    WriteFile(kConfigurationFile, "[A]\nb=1;c\n");
    ChangeConfigCmd(Plist());
    EXPECT_EQ(ReadFile(kConfigurationFile), "[A]\nb = 1\n\n");
  });
}

TEST_F(ChangeConfigCommand, FailureSignalsNoDaemon) {
  inside([] {
    StandIn fileD(kFileDPidFile);
    StandIn updateD(kUpdateDPidFile);
    CapturedLog log;
    WriteFile(kConfigurationFile, "[UpdateD\nsyntax error\n");
    EXPECT_EQ(Failure(BothSections()), "unexpected token");
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD\nsyntax error\n");
    WriteFile(kConfigurationFile, "[UpdateD]\nInterval = 1\n");
    EXPECT_NE(Failure(Plist::dictionary({{"MacOSWardex", "text"}})), "");
    EXPECT_EQ(ReadFile(kConfigurationFile), "");
    WriteFile(kConfigurationFile, "[UpdateD]\nInterval = 1\n");
    EXPECT_NE(Failure(Plist::dictionary({{"UpdateD", "text"}})), "");
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 1\n");
    std::filesystem::remove_all("/Library/Application Support");
    EXPECT_EQ(Failure(BothSections()), "can't open ini file");
    EXPECT_THAT(fileD.signals(), IsEmpty());
    EXPECT_THAT(updateD.signals(), IsEmpty());
    EXPECT_EQ(log.text(), "");
  });
}

TEST_F(ChangeConfigCommand, StateOfTheProcessIsTheSameAfterwards) {
  inside([] {
    CapturedLog log;
    sigset_t before;
    sigset_t after;
    sigemptyset(&before);
    sigaddset(&before, SIGUSR2);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    const bool isBorrowed = IsRoot() && BorrowRootsRights();
    for (const char* text : {"", "syntax error"}) {
      std::filesystem::remove(kConfigurationFile);
      WriteFile(kConfigurationFile, text);
      EXPECT_EQ(Failure(BothSections()).empty(), *text == '\0');
      pthread_sigmask(SIG_SETMASK, nullptr, &after);
      for (int signal = 1; signal < 32; ++signal) {
        EXPECT_EQ(sigismember(&after, signal), signal == SIGUSR2 ? 1 : 0) << signal;
      }
      EXPECT_EQ(getuid(), isBorrowed ? kOtherUser : 0U);
      EXPECT_EQ(geteuid(), 0U);
    }
  });
}

}  // namespace
}  // namespace zekara::test
