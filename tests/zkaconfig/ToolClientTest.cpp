#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Files.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/ToolClient.h"

namespace zekara::test {
namespace {

using testing::HasSubstr;

// Shell scripts take the place of a tool that misbehaves. The whole-program tests use the real one.
class AnsweringTool : public testing::Test {
 protected:
  std::string toolThat(const std::string& script) {
    WriteFile(path_, "#!/bin/sh\n" + script + "\n");
    EXPECT_EQ(chmod(path_.c_str(), 0755), 0);
    return path_;
  }
  // Echoes the request's ticket, as the tool does, with the given elements.
  std::string toolThatReplies(const std::string& elements) {
    return toolThat(
        "ticket=; while IFS= read -r line; do\n"
        "  case $line in *zkaconfig*) ticket=$line;; *'</plist>'*) break;; esac\n"
        "done\n"
        "echo \"<plist><dict><key>ticket</key>$ticket" +
        elements + "</dict></plist>\"");
  }
  void expectFailure(const std::string& tool, ExitStatus status, const char* message,
                     std::chrono::seconds limit) {
    try {
      ChangeConfiguration(tool, patch_, limit);
      ADD_FAILURE() << "nothing was raised";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), status);
      EXPECT_THAT(failure.what(), HasSubstr(message));
    }
  }

  static constexpr auto kPatience = std::chrono::seconds(120);
  const TemporaryDirectory directory_;
  const std::string path_ = directory_ / "tool";
  const Plist patch_ = Plist::dictionary({{"A", Plist::dictionary({{"x", 1}})}});
};

TEST_F(AnsweringTool, AnAcknowledgementGivesTheLog) {
  const std::string tool = toolThatReplies("<key>tag</key><string>ack</string>");
  WriteFile(tool, ReadFile(tool) + "echo \"a line of $1\" >&2\n");
  EXPECT_EQ(ChangeConfiguration(tool, patch_, kPatience), "a line of pipe\n");
}

TEST_F(AnsweringTool, AReplyIsCompleteAtItsEndTagWhateverFollowsIt) {
  const std::string tool = toolThatReplies("<key>tag</key><string>ack</string>");
  WriteFile(tool, ReadFile(tool) + "echo more\n");
  EXPECT_EQ(ChangeConfiguration(tool, patch_, kPatience), "");
}

TEST_F(AnsweringTool, AnErrorInTheReplyIsARefusalInTheToolsWords) {
  expectFailure(toolThatReplies("<key>tag</key><string>ack</string><key>err</key><string>no room</string>"),
                ExitStatus::Refused, "has not made the change: no room", kPatience);
}

TEST_F(AnsweringTool, AReplyToSomethingElseIsNotAnAnswer) {
  expectFailure(toolThatReplies("<key>tag</key><string>cmd</string>"), ExitStatus::NoAnswer, "something else",
                kPatience);
  expectFailure(
      toolThat("echo '<plist><dict><key>tag</key><string>ack</string></dict></plist>'; cat >/dev/null"),
      ExitStatus::NoAnswer, "something else", kPatience);
  expectFailure(toolThat("echo '<plist><true/></plist>'; cat >/dev/null"), ExitStatus::NoAnswer,
                "something else", kPatience);
}

TEST_F(AnsweringTool, AnEndWithoutAReplyIsToldWithTheLog) {
  expectFailure(toolThat("echo broken >&2; exit 2"), ExitStatus::NoAnswer, "ended without an answer:\nbroken",
                kPatience);
  expectFailure(toolThat("echo nonsense"), ExitStatus::NoAnswer, "ended without an answer", kPatience);
}

TEST_F(AnsweringTool, ASilentToolIsGivenUpAfterTheLimit) {
  expectFailure(toolThat("exec >/dev/null 2>&1; cat; exec sleep 5"), ExitStatus::NoAnswer,
                "has not answered in time", std::chrono::seconds(1));
}

TEST_F(AnsweringTool, AToolThatIsNotThereIsTold) {
  expectFailure(directory_ / "missing", ExitStatus::NoAnswer, "No such file or directory", kPatience);
  WriteFile(path_, "no program");
  expectFailure(path_, ExitStatus::NoAnswer, "Permission denied", kPatience);
}

TEST_F(AnsweringTool, SettingsThatNoMessageCanCarryAreNotSent) {
  const Plist patch = Plist::dictionary({{"A", Plist::dictionary({{"x", "\xFF"}})}});
  try {
    ChangeConfiguration(directory_ / "missing", patch, kPatience);
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), ExitStatus::Usage);
  }
}

}  // namespace
}  // namespace zekara::test
