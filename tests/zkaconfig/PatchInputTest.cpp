#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zkaconfig/Failure.h"
#include "zkaconfig/PatchInput.h"

namespace zekara {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Plist Tree(const Plist& section, const Plist& key, const Plist& value) {
  return Plist::dictionary({{section, Plist::dictionary({{key, value}})}});
}

template <class Action>
void ExpectFailure(ExitStatus status, const char* message, Action action) {
  try {
    action();
    ADD_FAILURE() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), status);
    EXPECT_THAT(failure.what(), HasSubstr(message));
  }
}

Plist FromWords(std::vector<std::string> words, bool keepsStrings = false) {
  return PatchFromWords(words, keepsStrings);
}

TEST(PatchFromWords, ASectionAndItsSettingsMakeATree) {
  EXPECT_EQ(FromWords({"A", "x=1", "y=a=b", "z="}),
            Plist::dictionary({{"A", Plist::dictionary({{"x", "1"}, {"y", "a=b"}, {"z", ""}})}}));
}

TEST(PatchFromWords, AWordWithoutEqualsBeginsAnotherSection) {
  EXPECT_EQ(FromWords({"A", "x=1", "B", "x=2", "A", "y=3"}),
            Plist::dictionary({{"A", Plist::dictionary({{"x", "1"}, {"y", "3"}})},
                               {"B", Plist::dictionary({{"x", "2"}})}}));
}

TEST(PatchFromWords, CommasAndRepeatedKeysMakeLists) {
  EXPECT_EQ(FromWords({"A", "x=a,b", "x=c"}), Tree("A", "x", Plist::array({"a", "b", "c"})));
  EXPECT_EQ(FromWords({"A", "x=a,"}), Tree("A", "x", Plist::array({"a", ""})));
  EXPECT_EQ(FromWords({"A", "x=,,"}), Tree("A", "x", Plist::array({"", "", ""})));
}

TEST(PatchFromWords, CommasAreTextWhereStringsAreKept) {
  EXPECT_EQ(FromWords({"A", "x=a,b"}, true), Tree("A", "x", "a,b"));
  EXPECT_EQ(FromWords({"A", "x=a,b", "x=c"}, true), Tree("A", "x", Plist::array({"a,b", "c"})));
}

TEST(PatchFromWords, WhatIsNotASectionWithSettingsIsAUsageFailure) {
  ExpectFailure(ExitStatus::Usage, "no section", [] { FromWords({}); });
  ExpectFailure(ExitStatus::Usage, "the section of x=1 is missing", [] { FromWords({"x=1"}); });
  ExpectFailure(ExitStatus::Usage, "follows section A", [] { FromWords({"A"}); });
  ExpectFailure(ExitStatus::Usage, "follows section A", [] { FromWords({"A", "B", "x=1"}); });
  ExpectFailure(ExitStatus::Usage, "follows section B", [] { FromWords({"A", "x=1", "B"}); });
  ExpectFailure(ExitStatus::Usage, "\"=1\" has no key", [] { FromWords({"A", "=1"}); });
}

TEST(PatchFromFile, AnIniFileNeedsNoLineEndAtItsEnd) {
  EXPECT_EQ(PatchFromFile("[A]\nx = 12", "f"), Tree("A", "x", 12));
  EXPECT_EQ(PatchFromFile("[A]\nx =", "f"), Tree("A", "x", ""));
  EXPECT_EQ(PatchFromFile("", "f"), Plist::dictionary());
}

TEST(PatchFromFile, WhatBeginsLikeXmlIsAPropertyList) {
  const std::string xml =
      "<plist version=\"1.0\"><dict><key>A</key><dict><key>x</key><true/></dict></dict></plist>";
  EXPECT_EQ(PatchFromFile(xml, "f"), Tree("A", "x", true));
  EXPECT_EQ(PatchFromFile("\xEF\xBB\xBF" + xml, "f"), Tree("A", "x", true));
  EXPECT_EQ(PatchFromFile(" \n" + xml, "f"), Tree("A", "x", true));
}

TEST(PatchFromFile, WhatCannotBeReadIsToldWithItsPlace) {
  ExpectFailure(ExitStatus::Unreadable,
                "f is not a property list: ", [] { PatchFromFile("<plist><dict>", "f"); });
  ExpectFailure(ExitStatus::Unreadable, "f holds an array instead",
                [] { PatchFromFile("<plist><array/></plist>", "f"); });
  ExpectFailure(ExitStatus::Unreadable, "on line 2 ", [] { PatchFromFile("[A]\nx = gr\xC3\xBCn\n", "f"); });
  ExpectFailure(ExitStatus::Unreadable, "line 2: unexpected token",
                [] { PatchFromFile("[A]\ny\nx = 1\n", "f"); });
  ExpectFailure(ExitStatus::Unreadable, "outside of every section", [] { PatchFromFile("x = 1\n", "f"); });
}

ReviewedPatch Reviewed(const Plist& patch, bool keepsStrings = false,
                       const Plist& file = Plist::dictionary()) {
  return ReviewPatch(patch, file, KnownSections("Scan"), keepsStrings);
}

struct Normal {
  const char* section;
  const char* key;
  Plist given;
  Plist expected;
};

class NormalisedValues : public testing::TestWithParam<Normal> {};

TEST_P(NormalisedValues, TakeTheFormThatTheFileHolds) {
  const auto& [section, key, given, expected] = GetParam();
  const ReviewedPatch reviewed = Reviewed(Tree(section, key, given));
  EXPECT_THAT(reviewed.problems, IsEmpty());
  const Plist patch = reviewed.patch;
  const Plist& value = patch.objectForKey(section).objectForKey(key);
  EXPECT_EQ(value, expected) << value.description();
  EXPECT_EQ(value.kind(), expected.kind());
}

INSTANTIATE_TEST_SUITE_P(
    ReviewPatch, NormalisedValues,
    testing::Values(
        Normal{"UpdateD", "Interval", "60", 60}, Normal{"UpdateD", "Interval", "007", 7},
        Normal{"UpdateD", "Interval", "2147483647", 2147483647}, Normal{"X", "k", "", ""},
        Normal{"X", "k", "-5", "-5"}, Normal{"X", "k", "1.5", "1.5"},
        Normal{"X", "k", "a;[b]=c#", "a;[b]=c#"},
        Normal{"X", "k", Plist::array({"1", "b"}), Plist::array({1, "b"})},
        Normal{"X", "k", Plist::array({"7"}), 7}, Normal{"X", "k", true, true},
        Normal{"MacOSWardex", "IsActive", "yes", "Yes"}, Normal{"MacOSWardex", "IsActive", "TRUE", "Yes"},
        Normal{"MacOSWardex", "IsActive", "on", "Yes"}, Normal{"MacOSWardex", "IsActive", "1", "Yes"},
        Normal{"MacOSWardex", "IsActive", true, "Yes"}, Normal{"MacOSWardex", "IsActive", "Off", "No"},
        Normal{"MacOSWardex", "SkipArchives", "0", "No"}, Normal{"MacOSWardex", "SkipArchives", false, "No"},
        Normal{"MacOSWardex", "IsActive", "2", "Yes"}, Normal{"Scan", "RunForeground", "no", "No"},
        Normal{"Scan", "PreFork", "yes", "yes"}, Normal{"X", "IsActive", "yes", "yes"},
        Normal{"MacOSWardex", "InfectedFiles", "cure", "Cure"},
        Normal{"MacOSWardex", "InfectedFiles", "QUARANTINE", "Quarantine"},
        Normal{"MacOSWardex", "ActionJokes", "32", "Report"},
        Normal{"MacOSWardex", "ActionJokes", 1, "Delete"}, Normal{"X", "ActionJokes", "cure", "cure"}));

struct Problem {
  const char* section;
  const char* key;
  Plist given;
  const char* message;
};

class ProblematicValues : public testing::TestWithParam<Problem> {};

TEST_P(ProblematicValues, AreToldInOneSentenceAndStayInThePatch) {
  const auto& [section, key, given, message] = GetParam();
  const ReviewedPatch reviewed = Reviewed(Tree(section, key, given));
  ASSERT_EQ(reviewed.problems.size(), 1U);
  EXPECT_THAT(reviewed.problems[0], HasSubstr(message));
  EXPECT_FALSE(reviewed.patch.objectForKey(section).objectForKey(key).isNil());
}

INSTANTIATE_TEST_SUITE_P(
    ReviewPatch, ProblematicValues,
    testing::Values(
        Problem{"X", "k", "a\"b", "double quote"}, Problem{"X", "k", "a\nb", "line end"},
        Problem{"X", "k", "a\rb", "line end"}, Problem{"X", "k", "gr\xC3\xBCn", "7-bit ASCII"},
        Problem{"X", "k", " a", "blank"}, Problem{"X", "k", "a\t", "blank"},
        Problem{"X", "k", Plist::array({"a", "", "b"}), "empty list element"},
        Problem{"X", "k", Plist::array({"a", ""}), "empty list element"},
        Problem{"X", "k", Plist::array({"a", "b\""}), "double quote"},
        Problem{"X", "k", Plist::array(), "empty list"},
        Problem{"X", "k", "2147483648", "give back the number 2147483647"},
        Problem{"X", "k", "99999999999999999999", "give back the number 2147483647"},
        Problem{"X", "k", -5, "give back the text \"-5\""}, Problem{"X", "k", 1.5, "give back the text"},
        Problem{"X", "k", Plist::data("x"), "give back the text"},
        Problem{"X", "k", Plist::dictionary({{"a", 1}}), "give back the text"},
        Problem{"X]", "k", "1", "cannot be written"}, Problem{"X", "a;b", "1", "cannot be written"},
        Problem{"X", "", "1", "a key needs a name"}, Problem{"", "k", "1", "a section needs a name"},
        Problem{"X", " k", "1", "cannot be written"}, Problem{"\xC3\xBC", "k", "1", "cannot be written"},
        Problem{"MacOSWardex", "IsActive", "maybe", "one of Yes, No"},
        Problem{"MacOSWardex", "IsActive", Plist::array({"Yes", "No"}), "one of Yes, No"},
        Problem{"MacOSWardex", "ActionJokes", "Laugh", "one of Cure, Delete"},
        Problem{"MacOSWardex", "ActionJokes", "16", "one of Cure, Delete"},
        Problem{"UpdateD", "Interval", "daily", "is a number"},
        Problem{"UpdateD", "Interval", "-1", "is a number"},
        Problem{"UpdateD", "Interval", "", "is a number"},
        Problem{"UpdateD", "Mode", Plist::array({"a", "b"}), "one value, not a list"}));

TEST(ReviewPatch, ProblemsOfAllSettingsAreToldAtOnce) {
  const Plist section = Plist::dictionary({{"a", " x"}, {"b", "fine"}, {"c", "\""}});
  EXPECT_THAT(Reviewed(Plist::dictionary({{"X", section}})).problems,
              ElementsAre(HasSubstr("X: a "), HasSubstr("X: c ")));
}

TEST(ReviewPatch, WhereStringsAreKeptDigitsStayTextWithARemark) {
  const ReviewedPatch reviewed = Reviewed(Tree("X", "k", "042"), true);
  EXPECT_THAT(reviewed.problems, IsEmpty());
  EXPECT_THAT(reviewed.warnings, ElementsAre(HasSubstr("gives digits back as a number")));
  EXPECT_EQ(reviewed.patch, Tree("X", "k", "042"));
}

TEST(ReviewPatch, NamesThatAreProbablyMisspeltAreProblemsAndOtherUnknownKeysAreRemarkedUpon) {
  EXPECT_THAT(Reviewed(Tree("UpdateD", "Intervall", "1")).problems,
              ElementsAre(HasSubstr("did you mean Interval?")));
  EXPECT_THAT(Reviewed(Tree("updated", "Mode", "x")).problems,
              ElementsAre(HasSubstr("did you mean UpdateD?")));
  const ReviewedPatch unknown = Reviewed(Tree("UpdateD", "Colour", "red"));
  EXPECT_THAT(unknown.warnings, ElementsAre(HasSubstr("\"Colour\"")));
  EXPECT_THAT(unknown.problems, IsEmpty());
  EXPECT_THAT(Reviewed(Tree("Printer", "Mode", "x")).warnings, IsEmpty());
}

TEST(ReviewPatch, AMisspeltNameThatTheFileHoldsAlreadyIsOnlyRemarkedUpon) {
  for (const Plist& file : {Tree("UpdateD", "Intervall", 1), Tree("updated", "Mode", "x")}) {
    const ReviewedPatch reviewed = Reviewed(file, false, file);
    EXPECT_THAT(reviewed.problems, IsEmpty());
    EXPECT_THAT(reviewed.warnings, ElementsAre(HasSubstr("did you mean")));
  }
}

TEST(ReviewPatch, ASectionWithoutSettingsIsLeftOutWithARemark) {
  const ReviewedPatch reviewed = Reviewed(Plist::dictionary({{"X", Plist::dictionary()}}));
  EXPECT_EQ(reviewed.patch.count(), 0U);
  EXPECT_THAT(reviewed.warnings, ElementsAre(HasSubstr("left out")));
}

TEST(ReviewPatch, ASectionThatIsNotADictionaryIsNeverLetThrough) {
  for (const Plist& value : {Plist("text"), Plist(1), Plist::array({"a"})}) {
    ExpectFailure(ExitStatus::Usage, "section X is not a dictionary", [&] {
      Reviewed(Plist::dictionary({{"X", value}}));
    });
  }
}

TEST(ReviewPatch, TheGivenPatchIsLeftAsItIs) {
  const Plist patch = Tree("MacOSWardex", "IsActive", "yes");
  Reviewed(patch);
  EXPECT_EQ(patch, Tree("MacOSWardex", "IsActive", "yes"));
}

TEST(ElementsFromWords, CommasSeparateElementsUnlessStringsAreKept) {
  const std::vector<std::string> words = {"a,7", "[b,c]"};
  EXPECT_EQ(ElementsFromWords(words, false), Plist::array({"a", 7, "[b", "c]"}));
  EXPECT_EQ(ElementsFromWords(words, true), Plist::array({"a,7", "[b,c]"}));
}

TEST(PatchFromFile, WhatBeginsLikeAJsonObjectIsJson) {
  EXPECT_EQ(PatchFromFile("\xEF\xBB\xBF {\"A\": {\"x\": [1, \"b\"]}}", "it"),
            Tree("A", "x", Plist::array({1, "b"})));
  ExpectFailure(ExitStatus::Unreadable, "it is not JSON: parse error at line 1",
                [] { PatchFromFile("{\"A\"}", "it"); });
}

class ShownSettings : public testing::Test {
 protected:
  Plist patchFrom(const Plist& section, const Plist& key, const Plist& value, bool isDefault) {
    Settings settings(Tree("MacOSWardex", "InfectedFiles", "cure"), known_, true);
    settings.typeBooleans();
    const Plist shown = Plist::dictionary({{"value", value}, {"default", isDefault}});
    return PatchFromShown(Tree(section, key, shown), settings);
  }
  const KnownSections known_;
};

TEST_F(ShownSettings, AreLeftOutWhereTheyAreInForce) {
  EXPECT_EQ(patchFrom("MacOSWardex", "IsActive", false, true).count(), 0U);
  EXPECT_EQ(patchFrom("MacOSWardex", "InfectedFiles", "cure", false).count(), 0U);
  EXPECT_EQ(patchFrom("MacOSWardex", "InfectedFiles", 2, false).count(), 0U) << "the action's code";
  EXPECT_EQ(patchFrom("Scan", "MaxChildren", 16, true).count(), 0U)
      << "a default of a section not named here";
}

TEST_F(ShownSettings, AreSentWhereAnotherValueIsInForceEvenIfTheyWereDefaultsElsewhere) {
  EXPECT_EQ(patchFrom("MacOSWardex", "IsActive", true, true), Tree("MacOSWardex", "IsActive", true));
  EXPECT_EQ(patchFrom("Other", "x", 1, false), Tree("Other", "x", 1));
}

TEST(PatchFromShown, LeavesPlainSettingsAndEverythingElseAsItIs) {
  const KnownSections known;
  const Settings settings(Plist::dictionary(), known, true);
  const Plist tree =
      Plist::dictionary({{"A", Plist::dictionary({{"x", 1}, {"y", Plist::dictionary({{"z", 1}})}})},
                         {"Empty", Plist::dictionary()},
                         {"Text", "x"}});
  EXPECT_EQ(PatchFromShown(tree, settings), tree);
}

}  // namespace
}  // namespace zekara
