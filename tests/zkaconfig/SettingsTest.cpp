#include <gtest/gtest.h>

#include "zkaconfig/Settings.h"

namespace zekara {
namespace {

Plist File() {
  return Plist::dictionary({
      {"Other", Plist::dictionary({{"k", 1}})},
      {"MacOSWardex",
       Plist::dictionary({{"IsActive", 1}, {"SkipArchives", "yes"}, {"ActionJokes", "ignore"}})},
  });
}

class SettingsInForce : public testing::Test {
 protected:
  static Plist at(const Settings& settings, const char* section, const char* key) {
    return settings.tree().objectForKey(section).objectForKey(key);
  }

  const Plist file_ = File();
  const KnownSections known_;
  Settings settings_{file_, known_, true};
};

TEST_F(SettingsInForce, DefaultsStandForWhatTheFileLacksAndAreMarked) {
  EXPECT_EQ(at(settings_, "MacOSWardex", "FileTimeout"), Plist(30));
  EXPECT_TRUE(settings_.isDefault("MacOSWardex", "FileTimeout"));
  EXPECT_EQ(at(settings_, "UpdateD", "Mode"), Plist("Auto"));
  EXPECT_TRUE(settings_.isDefault("UpdateD", "Mode"));
  EXPECT_FALSE(settings_.isDefault("MacOSWardex", "IsActive"));
  EXPECT_FALSE(settings_.isDefault("Other", "k"));
  EXPECT_FALSE(settings_.isDefault("Other", "missing"));
}

TEST_F(SettingsInForce, TheFilesTreeStaysAsItIs) {
  settings_.typeBooleans();
  settings_.encodeActions();
  EXPECT_EQ(file_, File());
}

TEST_F(SettingsInForce, WithoutDefaultsThereIsOnlyWhatTheFileHolds) {
  EXPECT_EQ(Settings(file_, known_, false).tree(), file_);
}

TEST_F(SettingsInForce, AKeyThatIsSetToItsDefaultIsNotMarked) {
  const Plist file = Plist::dictionary({{"UpdateD", Plist::dictionary({{"Mode", "Auto"}})}});
  const Settings settings(file, known_, true);
  EXPECT_FALSE(settings.isDefault("UpdateD", "Mode"));
  EXPECT_TRUE(settings.isDefault("UpdateD", "Interval"));
}

TEST_F(SettingsInForce, SpelledBooleansAreYesAndNoAlsoWhereTheFileHoldsANumber) {
  settings_.spellBooleans();
  EXPECT_EQ(at(settings_, "MacOSWardex", "IsActive"), Plist("Yes"));
  EXPECT_EQ(at(settings_, "MacOSWardex", "SkipArchives"), Plist("yes"));
}

TEST_F(SettingsInForce, TypedBooleansAreTrueForExactlyYesAndForNumbersButZero) {
  settings_.typeBooleans();
  EXPECT_EQ(at(settings_, "MacOSWardex", "IsActive").kind(), Plist::Kind::Boolean);
  EXPECT_TRUE(at(settings_, "MacOSWardex", "IsActive").boolValue());
  EXPECT_EQ(at(settings_, "MacOSWardex", "SkipArchives").kind(), Plist::Kind::Boolean);
  EXPECT_FALSE(at(settings_, "MacOSWardex", "SkipArchives").boolValue());
}

TEST_F(SettingsInForce, EncodedActionsAreNumbersAndWhatIsNotAnActionStays) {
  file_.objectForKey("MacOSWardex").setObject_forKey("Frown", "InfectedFiles");
  file_.objectForKey("MacOSWardex").setObject_forKey(Plist::array({"Cure", "Report"}), "ActionAdware");
  Settings settings(file_, known_, true);
  settings.encodeActions();
  EXPECT_EQ(at(settings, "MacOSWardex", "ActionJokes"), Plist(8));
  EXPECT_EQ(at(settings, "MacOSWardex", "IncurableFiles"), Plist(4));
  EXPECT_EQ(at(settings, "MacOSWardex", "InfectedFiles"), Plist("Frown"));
  EXPECT_EQ(at(settings, "MacOSWardex", "ActionAdware"), Plist::array({"Cure", "Report"}));
}

TEST_F(SettingsInForce, ActionsOfAFileWithoutTheirSectionAreNoMatter) {
  Settings settings(Plist::dictionary(), known_, false);
  settings.encodeActions();
  EXPECT_EQ(settings.tree(), Plist::dictionary());
}

}  // namespace
}  // namespace zekara
