#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Commands.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Help.h"

namespace zekara {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Arguments Parse(std::vector<const char*> words) {
  return ParseArguments(words);
}

TEST(Arguments, WithoutOptionsTheCommandAndItsOperandsAreTakenAndNothingElseIsAskedFor) {
  const Arguments arguments = Parse({"set", "UpdateD", "Mode=Auto"});
  EXPECT_EQ(arguments.command, "set");
  EXPECT_THAT(arguments.operands, ElementsAre("UpdateD", "Mode=Auto"));
  EXPECT_EQ(arguments.form, OutputForm::People);
  EXPECT_EQ(arguments.configurationFile, "/Library/Application Support/Zekara/zekara32.ini");
  EXPECT_EQ(arguments.timeLimit, std::chrono::seconds(60));
  EXPECT_TRUE(arguments.suppliesDefaults && arguments.waitsForLock);
  EXPECT_FALSE(arguments.isDryRun || arguments.isForced || arguments.isQuiet || arguments.isVerbose ||
               arguments.keepsStrings || arguments.showsActionCodes || arguments.wantsHelp ||
               arguments.wantsVersion);
}

TEST(Arguments, OptionsMayStandBeforeBetweenAndBehindTheWords) {
  const Arguments arguments = Parse(
      {"--json", "set", "--config", "/a b", "UpdateD", "-nq", "Mode=Auto", "--tool=/t=1", "--timeout", "7"});
  EXPECT_EQ(arguments.command, "set");
  EXPECT_THAT(arguments.operands, ElementsAre("UpdateD", "Mode=Auto"));
  EXPECT_EQ(arguments.form, OutputForm::Json);
  EXPECT_EQ(arguments.configurationFile, "/a b");
  EXPECT_EQ(arguments.toolPath, "/t=1");
  EXPECT_EQ(arguments.timeLimit, std::chrono::seconds(7));
  EXPECT_TRUE(arguments.isDryRun);
  EXPECT_TRUE(arguments.isQuiet);
}

TEST(Arguments, BehindTwoDashesNothingIsAnOption) {
  const Arguments arguments = Parse({"--", "set", "--json", "-x=1", "--"});
  EXPECT_EQ(arguments.command, "set");
  EXPECT_THAT(arguments.operands, ElementsAre("--json", "-x=1", "--"));
  EXPECT_EQ(arguments.form, OutputForm::People);
}

TEST(Arguments, ALoneDashIsAWord) {
  EXPECT_THAT(Parse({"apply", "-"}).operands, ElementsAre("-"));
}

TEST(Arguments, AnOptionsValueMayLookLikeAnOption) {
  EXPECT_EQ(Parse({"show", "--config", "--json"}).configurationFile, "--json");
}

TEST(Arguments, HelpAndVersionNeedNoCommand) {
  EXPECT_TRUE(Parse({"-h"}).wantsHelp);
  EXPECT_TRUE(Parse({"--version"}).wantsVersion);
  EXPECT_THAT(Parse({"-hV"}).command, IsEmpty());
}

TEST(Arguments, EachFlagIsItsOwn) {
  EXPECT_EQ(Parse({"show", "--plist"}).form, OutputForm::Plist);
  EXPECT_TRUE(Parse({"show", "--force"}).isForced);
  EXPECT_TRUE(Parse({"show", "--string"}).keepsStrings);
  EXPECT_TRUE(Parse({"show", "--action-codes"}).showsActionCodes);
  EXPECT_FALSE(Parse({"show", "--no-defaults"}).suppliesDefaults);
  EXPECT_FALSE(Parse({"show", "--no-lock"}).waitsForLock);
  EXPECT_TRUE(Parse({"show", "--verbose"}).isVerbose);
  EXPECT_EQ(Parse({"show", "-z"}).form, OutputForm::Null);
  EXPECT_EQ(Parse({"get", "--default="}).fallback, "");
  EXPECT_EQ(Parse({"get"}).fallback, std::nullopt);
  EXPECT_EQ(Parse({"show", "--daemon-section=Scan"}).daemonSection, "Scan");
}

struct Refusal {
  std::vector<const char*> words;
  const char* message;
};

class RefusedArguments : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedArguments, AreAUsageFailureThatNamesTheWord) {
  try {
    ParseArguments(GetParam().words);
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), ExitStatus::Usage);
    EXPECT_THAT(failure.what(), HasSubstr(GetParam().message));
    EXPECT_THAT(failure.advice(), HasSubstr("--help"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, RefusedArguments,
    testing::Values(Refusal{{}, "no command"}, Refusal{{"--json"}, "no command"},
                    Refusal{{"show", "--nonsense"}, "--nonsense"},
                    Refusal{{"show", "--jsn"}, "did you mean --json?"}, Refusal{{"show", "--jso"}, "--jso"},
                    Refusal{{"show", "-nx"}, "-x"}, Refusal{{"show", "--json=1"}, "--json takes no value"},
                    Refusal{{"show", "--config"}, "--config needs a value"},
                    Refusal{{"--config=", "show"}, "--config needs a path"},
                    Refusal{{"show", "--tool", ""}, "--tool needs a path"},
                    Refusal{{"show", "--timeout", "0"}, "\"0\""}, Refusal{{"show", "--timeout="}, "\"\""},
                    Refusal{{"show", "--timeout=-1"}, "\"-1\""}, Refusal{{"show", "--timeout=5s"}, "\"5s\""},
                    Refusal{{"show", "--timeout=1000001"}, "\"1000001\""}));

TEST(ParseUnfinished, NeedsNoCommand) {
  const std::vector<const char*> words = {"--config", "/a"};
  EXPECT_EQ(ParseUnfinished(words).configurationFile, "/a");
}

TEST(Arguments, WordsReachTheOperandsByteForByte) {
  EXPECT_THAT(Parse({"add", "S", "K", "[a,b]", "", "'x'", "%%"}).operands,
              ElementsAre("S", "K", "[a,b]", "", "'x'", "%%"));
}

TEST(HelpText, NamesEveryOptionAndCommandOnALineOfItsOwn) {
  const std::string text = HelpText();
  for (const Option& option : Options())
    EXPECT_THAT(text, ContainsRegex("\n  (-., |    )--" + std::string(option.name) + " ")) << option.name;
  for (const Command& command : Commands())
    EXPECT_THAT(text, HasSubstr("\n  " + std::string(command.name) + " ")) << command.name;
}

TEST(HelpText, FitsATerminalOfEightyColumns) {
  std::string text = HelpText();
  for (const Command& command : Commands()) text += HelpText(std::string(command.name));
  std::size_t longest = 0;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    longest = std::max(longest, end - start);
    start = end + 1;
  }
  EXPECT_LE(longest, 80U);
}

TEST(HelpText, OfACommandHasItsUsage) {
  EXPECT_THAT(HelpText("reset"), HasSubstr("Usage: zkaconfig [OPTION...] reset SECTION [KEY...]\n"));
  EXPECT_THROW(HelpText("rest"), Failure);
}

}  // namespace
}  // namespace zekara
