#include <signal.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/PostInstall.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PostInstallCommand : public PrivateRoot {};

TEST_F(PostInstallCommand, FileMonitorIsSwitchedOnAndGetsBothSignals) {
  inside([] {
    WriteFile(kConfigurationFile, "[MacOSWardex]\nIsActive = No\nFileTimeout = 30\n[UpdateD]\nMode = Auto\n");
    StandIn fileD(kFileDPidFile);
    StandIn updateD(kUpdateDPidFile);
    CapturedLog log;
    PostInstall();
    EXPECT_EQ(ReadFile(kConfigurationFile),
              "[MacOSWardex]\nIsActive = Yes\nFileTimeout = 30\n\n[UpdateD]\nMode = Auto\n\n");
    EXPECT_EQ(fileD.signals(), (std::set{SIGHUP, SIGTERM}));
    EXPECT_THAT(updateD.signals(), IsEmpty());
    EXPECT_EQ(log.text(), "");
  });
}

TEST_F(PostInstallCommand, SecondTimeDoesTheSameAgain) {
  inside([] {
    WriteFile(kConfigurationFile, "[MacOSWardex]\nIsActive = Yes ; on already\n");
    for (int time = 0; time < 2; ++time) {
      StandIn fileD(kFileDPidFile);
      PostInstall();
      EXPECT_EQ(fileD.signals(), (std::set{SIGHUP, SIGTERM}));
      EXPECT_EQ(ReadFile(kConfigurationFile), "[MacOSWardex]\nIsActive = Yes\n\n");
    }
  });
}

TEST_F(PostInstallCommand, WithoutTheDaemonTheFileIsChangedAndBothFailuresAreLoggedInOrder) {
  inside([] {
    CapturedLog log;
    PostInstall();
    EXPECT_EQ(ReadFile(kConfigurationFile), "[MacOSWardex]\nIsActive = Yes\n\n");
    EXPECT_THAT(log.messages(), ElementsAre("Can't signal 1 to /var/zekara/run/FileD.pid",
                                            "Can't signal 15 to /var/zekara/run/FileD.pid"));
  });
}

TEST_F(PostInstallCommand, FailedChangePassesOnAndSendsNoTermination) {
  inside([] {
    StandIn fileD(kFileDPidFile);
    CapturedLog log;
    WriteFile(kConfigurationFile, "syntax error");
    EXPECT_THROW(PostInstall(), NSException);
    EXPECT_EQ(ReadFile(kConfigurationFile), "syntax error");
    std::filesystem::remove_all("/Library/Application Support");
    EXPECT_THROW(PostInstall(), NSException);
    EXPECT_THAT(fileD.signals(), IsEmpty());
    EXPECT_EQ(log.text(), "");
  });
}

}  // namespace
}  // namespace zekara::test
