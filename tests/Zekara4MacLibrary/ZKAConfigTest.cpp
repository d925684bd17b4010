#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "Zekara4MacLibrary/ZKAConfig.h"

namespace zekara {
namespace {

struct TargetCase {
  std::int32_t target;
  const char* key;
};

TEST(ZKAConfig, EveryTargetCodeNamesTheKeyOfItsAction) {
  const TargetCase cases[] = {
      {1, "InfectedFiles"}, {2, "SuspiciousFiles"}, {3, "IncurableFiles"}, {4, "ActionAdware"},
      {5, "ActionDialers"}, {6, "ActionJokes"},     {7, "ActionRiskware"}, {8, "ActionHacktools"},
  };
  for (const TargetCase& one : cases) EXPECT_STREQ(target2string(one.target), one.key) << one.target;
}

TEST(ZKAConfig, EveryOtherTargetCodeIsAnError) {
  using Limits = std::numeric_limits<std::int32_t>;
  for (const std::int32_t target : {0, 9, -1, 10, 257, 65537, Limits::max(), Limits::min()}) {
    EXPECT_STREQ(target2string(target), "ERROR") << target;
  }
}

struct ActionCase {
  const char* word;
  std::int32_t code;
};

class ZKAConfigAction : public testing::TestWithParam<ActionCase> {};

TEST_P(ZKAConfigAction, AWordGivesItsCode) {
  EXPECT_EQ(string2action(GetParam().word), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Words, ZKAConfigAction,
                         testing::Values(ActionCase{"Delete", 1}, ActionCase{"Cure", 2},
                                         ActionCase{"Quarantine", 4}, ActionCase{"Ignore", 8},
                                         ActionCase{"Report", 32}));

TEST(ZKAConfig, LetterCaseOfAnActionWordIsIgnored) {
  const ActionCase cases[] = {{"REPORT", 32}, {"quarantine", 4}, {"cURE", 2}, {"deletE", 1}, {"iGNOREWD", 0}};
  for (const ActionCase& one : cases) EXPECT_EQ(string2action(one.word), one.code) << one.word;
}

TEST(ZKAConfig, AnyOtherTextIsNotAnAction) {
  for (const char* word : {"", " ", "Report ", " Cure", "Cur", "Cures", "Yes", "1", "32", "Move", "Cure\n"}) {
    EXPECT_EQ(string2action(word), 0) << '"' << word << '"';
  }
}

}  // namespace
}  // namespace zekara
