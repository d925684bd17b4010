#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zkaconfig/Failure.h"
#include "zkaconfig/KnownSections.h"

namespace zekara {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(KnownSections, WithoutANameTheScanningDaemonsSectionIsNotAmongThem) {
  const KnownSections known;
  ASSERT_EQ(known.sections().size(), 2U);
  EXPECT_NE(known.defaultsOf("MacOSWardex"), nullptr);
  EXPECT_NE(known.defaultsOf("UpdateD"), nullptr);
  EXPECT_EQ(known.defaultsOf("Scan"), nullptr);
  EXPECT_EQ(known.defaultsOf("updated"), nullptr);
}

TEST(KnownSections, TheNamedSectionHasTheScanningDaemonsTable) {
  const KnownSections known("Scan");
  const SectionDefault* row = known.rowOf("Scan", "MaxChildren");
  ASSERT_NE(row, nullptr);
  EXPECT_STREQ(static_cast<const char*>(row->value), "16");
}

TEST(KnownSections, AnotherDaemonsSectionCannotBeTheScanningDaemons) {
  EXPECT_THROW(KnownSections("UpdateD"), Failure);
  EXPECT_THROW(KnownSections("MacOSWardex"), Failure);
}

TEST(KnownSections, ARowIsFoundByItsExactNameInItsOwnSection) {
  const KnownSections known;
  EXPECT_NE(known.rowOf("UpdateD", "Interval"), nullptr);
  EXPECT_EQ(known.rowOf("UpdateD", "interval"), nullptr);
  EXPECT_EQ(known.rowOf("MacOSWardex", "Interval"), nullptr);
  EXPECT_EQ(known.rowOf("Nowhere", "Interval"), nullptr);
}

TEST(ActionKeys, AreTheEightOfTheFileMonitor) {
  const Plist keys = ActionKeys();
  EXPECT_EQ(keys, Plist::array({"InfectedFiles", "SuspiciousFiles", "IncurableFiles", "ActionAdware",
                                "ActionDialers", "ActionJokes", "ActionRiskware", "ActionHacktools"}));
  EXPECT_TRUE(IsActionKey("MacOSWardex", "ActionJokes"));
  EXPECT_FALSE(IsActionKey("MacOSWardex", "IsActive"));
  EXPECT_FALSE(IsActionKey("UpdateD", "ActionJokes"));
}

TEST(WordsFor, ActionsAndBooleansHaveWordsAndNothingElseHas) {
  const KnownSections known("Scan");
  EXPECT_THAT(WordsFor(known, "MacOSWardex", "InfectedFiles"),
              ElementsAre("Cure", "Delete", "Ignore", "Quarantine", "Report"));
  EXPECT_THAT(WordsFor(known, "MacOSWardex", "IsActive"), ElementsAre("Yes", "No"));
  EXPECT_THAT(WordsFor(known, "Scan", "RunForeground"), ElementsAre("Yes", "No"));
  EXPECT_THAT(WordsFor(known, "Scan", "PreFork"), IsEmpty()) << "is typed a string on purpose";
  EXPECT_THAT(WordsFor(known, "UpdateD", "Mode"), IsEmpty());
  EXPECT_THAT(WordsFor(known, "Nowhere", "IsActive"), IsEmpty());
}

TEST(KnownSections, EveryKnownKeyHasASummaryThatIsASentence) {
  const KnownSections known("Scan");
  for (const auto& section : known.sections()) {
    for (const std::string& key : KeysOf(section.defaults)) {
      const auto setting = known.settingOf(section.name, key);
      ASSERT_TRUE(setting);
      EXPECT_EQ(setting->row, known.rowOf(section.name, key));
      EXPECT_THAT(setting->summary, testing::MatchesRegex("[A-Z].*[.]")) << key;
    }
  }
  EXPECT_FALSE(known.settingOf("UpdateD", "interval"));
  EXPECT_FALSE(known.settingOf("Nowhere", "Interval"));
}

TEST(KnownSections, TheScanningDaemonIsToldOfNoChange) {
  const KnownSections known("Scan");
  EXPECT_NE(known.sectionNamed("UpdateD")->notified, nullptr);
  EXPECT_EQ(known.sectionNamed("Scan")->notified, nullptr);
  EXPECT_EQ(known.sectionNamed("Nowhere"), nullptr);
}

TEST(DefaultOf, IsTheValueThatTheFileWouldHold) {
  const KnownSections known;
  EXPECT_EQ(DefaultOf(*known.rowOf("UpdateD", "Interval")), Plist(43200));
  EXPECT_EQ(DefaultOf(*known.rowOf("MacOSWardex", "IsActive")), Plist("No"));
  EXPECT_EQ(DefaultOf(*known.rowOf("MacOSWardex", "ExcludedPaths")).count(), 5U);
}

TEST(ClosestName, IsTheOneThatWasProbablyMeant) {
  const std::vector<std::string> names = {"Mode", "Interval", "IsActive"};
  EXPECT_EQ(ClosestName("mode", names), "Mode");
  EXPECT_EQ(ClosestName("Intervall", names), "Interval");
  EXPECT_EQ(ClosestName("IsActve", names), "IsActive");
  EXPECT_EQ(ClosestName("Mod", names), "Mode");
  EXPECT_EQ(ClosestName("Nothing", names), std::nullopt);
  EXPECT_EQ(ClosestName("xy", {"ab"}), std::nullopt) << "no letter of it is right";
  EXPECT_EQ(ClosestName("", names), std::nullopt);
  EXPECT_EQ(ClosestName("Mode", {}), std::nullopt);
}

}  // namespace
}  // namespace zekara
