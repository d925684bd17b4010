#include <gtest/gtest.h>

#include "PortableFoundation/NSPropertyListSerialization.h"
#include "zkaconfig/Report.h"

namespace zekara {
namespace {

Plist Tree(const char* section, const Plist& values) {
  return Plist::dictionary({{section, values}});
}

class Reports : public testing::Test {
 protected:
  const KnownSections known_;
  const Settings settings_{Tree("UpdateD", Plist::dictionary({{"Mode", "By hand"}})), known_, true};
  const Plist old_ = Tree("A", Plist::dictionary({{"x", 1}, {"same", 2}}));
  const Plist difference_ =
      Tree("A", Plist::dictionary({{"x", Plist::array({"a", "b c"})}, {"new", "\x1b"}}));
};

TEST_F(Reports, SettingsForPeopleAreAnIniFileInWhichDefaultsAreCommentedUpon) {
  EXPECT_EQ(SettingsReport(settings_, "UpdateD", OutputForm::People),
            "[UpdateD]\n"
            "Mode = \"By hand\"\n"
            "Interval = 43200                        ; default\n"
            "\n");
}

TEST_F(Reports, SettingsForProgramsCarryTheirOrigin) {
  EXPECT_EQ(SettingsReport(settings_, "UpdateD", OutputForm::Json),
            "{\n  \"UpdateD\": {\n"
            "    \"Mode\": {\n      \"value\": \"By hand\",\n      \"default\": false\n    },\n"
            "    \"Interval\": {\n      \"value\": 43200,\n      \"default\": true\n    }\n"
            "  }\n}\n");
}

TEST_F(Reports, WithoutASectionAllAreThereTheFilesFirst) {
  const std::string text = SettingsReport(settings_, {}, OutputForm::People);
  EXPECT_EQ(text.find("[UpdateD]\n"), 0U);
  EXPECT_NE(text.find("\n\n[MacOSWardex]\n"), std::string::npos);
}

Plist Value(const Plist& key, const Plist& value) {
  return Plist::dictionary({{"section", "A"}, {"key", key}, {"value", value}, {"default", false}});
}

TEST_F(Reports, AListTakesOneLineAnElement) {
  const Plist values = Plist::array({Value("k", Plist::array({"x y", 2, "\x07"}))});
  EXPECT_EQ(ValuesReport(values, true, OutputForm::People), "x y\n2\n\\x07\n");
  EXPECT_EQ(ValuesReport(values, true, OutputForm::Null), std::string("x y\0002\0\x07\0", 8));
}

TEST_F(Reports, SeveralValuesCarryTheirKeys) {
  const Plist values = Plist::array({Value("k", Plist::array({"a", 2})), Value("l", "b c")});
  EXPECT_EQ(ValuesReport(values, false, OutputForm::People), "k = a, 2\nl = \"b c\"\n");
  EXPECT_EQ(ValuesReport(values, false, OutputForm::Null), std::string("k\na\0k\n2\0l\nb c\0", 14));
}

TEST_F(Reports, AValueAsAPropertyListReadsBack) {
  std::string error;
  const Plist value = Value("Interval", 43200);
  EXPECT_EQ(NSPropertyListSerialization::propertyListFromData(
                ValuesReport(Plist::array({value}), true, OutputForm::Plist), error),
            value);
  EXPECT_EQ(NSPropertyListSerialization::propertyListFromData(
                ValuesReport(Plist::array({value}), false, OutputForm::Plist), error),
            Plist::array({value}));
}

TEST_F(Reports, SettingsThatEndInNulCarrySectionAndKey) {
  EXPECT_EQ(SettingsReport(settings_, "UpdateD", OutputForm::Null),
            std::string("UpdateD\nMode\nBy hand\0UpdateD\nInterval\n43200\0", 44));
}

TEST_F(Reports, ADescriptionHasTypeDefaultAndWords) {
  const std::string text = DescriptionReport(known_, "MacOSWardex", "IsActive", OutputForm::People);
  EXPECT_EQ(text,
            "[MacOSWardex]\n"
            "Read by the file monitor, FileD; told of a change by SIGHUP, after each request that names the "
            "section.\n"
            "\n"
            "IsActive: Switches the file monitor on or off.\n"
            "\n"
            "  Type:     boolean\n"
            "  Default:  No\n"
            "  Words:    Yes         on\n"
            "            No          off\n");
}

TEST_F(Reports, ADifferenceForPeopleShowsOldAndNewLines) {
  EXPECT_EQ(DifferenceReport(old_, difference_, true, OutputForm::People),
            "[A]\n"
            "-x = 1\n"
            "+x = a, \"b c\"\n"
            "+new = \"\\x1b\"\n");
}

TEST_F(Reports, ADifferenceForProgramsHasNoOldValueWhereThereWasNone) {
  EXPECT_EQ(DifferenceReport(old_, Tree("A", Plist::dictionary({{"x", 2}, {"new", true}})), false,
                             OutputForm::Json),
            "{\n  \"changes\": {\n    \"A\": {\n"
            "      \"x\": {\n        \"old\": 1,\n        \"new\": 2\n      },\n"
            "      \"new\": {\n        \"new\": true\n      }\n"
            "    }\n  },\n  \"sent\": false\n}\n");
}

TEST_F(Reports, NoDifferenceIsAnEmptyTextForPeople) {
  EXPECT_EQ(DifferenceReport(old_, Plist::dictionary(), false, OutputForm::People), "");
}

TEST_F(Reports, NamesAreLinesForPeopleAndAnArrayForPrograms) {
  EXPECT_EQ(NamesReport(Plist::array({"a", "b"}), OutputForm::People), "a\nb\n");
  EXPECT_EQ(NamesReport(Plist::array({"a", "b"}), OutputForm::Json), "[\n  \"a\",\n  \"b\"\n]\n");
}

}  // namespace
}  // namespace zekara
