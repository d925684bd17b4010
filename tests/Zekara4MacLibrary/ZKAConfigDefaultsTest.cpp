#include <cstdint>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "Zekara4MacLibrary/ZKAConfigDefaults.h"

namespace zekara {
namespace {

struct Row {
  std::string key;
  std::uint32_t type;
  std::vector<std::string> texts;  // one, but for a list

  bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.key << " (" << row.type << ")";
  for (const std::string& text : row.texts) *out << " \"" << text << '"';
}

std::vector<Row> RowsOf(const SectionDefault* table) {
  std::vector<Row> rows;
  for (; table->key != nullptr; ++table) {
    Row row{table->key, table->type, {}};
    if (table->type == DefaultTypeList) {
      for (auto* text = static_cast<const char* const*>(table->value); *text != nullptr; ++text) {
        row.texts.emplace_back(*text);
      }
    } else {
      row.texts.emplace_back(static_cast<const char*>(table->value));
    }
    rows.push_back(row);
  }
  EXPECT_EQ(table->type, 0U) << "the row that ends a table is all zero";
  EXPECT_EQ(table->value, nullptr) << "the row that ends a table is all zero";
  return rows;
}

TEST(ZKAConfigDefaults, TypeCodesAreThoseOfTheInterface) {
  EXPECT_EQ(DefaultTypeString, 0U);
  EXPECT_EQ(DefaultTypeNumber, 1U);
  EXPECT_EQ(DefaultTypeBoolean, 2U);
  EXPECT_EQ(DefaultTypeList, 3U);
}

TEST(ZKAConfigDefaults, TheScanningDaemonHasItsTwelveSettings) {
  const std::vector<Row> expected = {
      {"RunForeground", 2, {"Yes"}},
      {"User", 0, {"root"}},
      {"MaxChildren", 1, {"16"}},
      {"HeuristicAnalysis", 0, {"Yes"}},
      {"PreFork", 0, {"No"}},
      {"LogFileName", 0, {"/var/zekara/log/daemon.log"}},
      {"OutputMode", 0, {"Quiet"}},
      {"LogScanned", 0, {"No"}},
      {"PidFile", 0, {"/var/zekara/run/daemon.pid"}},
      {"Socket", 0, {"/var/zekara/run/daemon.socket"}},
      {"EnginePath", 0, {"/Library/Application Support/Zekara/lib/zekara32.dll"}},
      {"VirusBase",
       3,
       {"/Library/Application Support/Zekara/bases/*.vdb",
        "/Library/Application Support/Zekara/bases/*.VDB"}},
  };
  EXPECT_EQ(RowsOf(g_daemon_defaults), expected);
}

TEST(ZKAConfigDefaults, TheUpdaterHasItsTwoSettings) {
  const std::vector<Row> expected = {{"Mode", 0, {"Auto"}}, {"Interval", 1, {"43200"}}};
  EXPECT_EQ(RowsOf(g_updated_defaults), expected);
}

TEST(ZKAConfigDefaults, TheFileMonitorHasItsTwelveSettings) {
  const std::vector<Row> expected = {
      {"IsActive", 2, {"No"}},
      {"FileTimeout", 1, {"30"}},
      {"SkipArchives", 2, {"Yes"}},
      {"ExcludedPaths",
       3,
       {"/dev", "/private/var/log", "/private/var/zekara/run", "/private/var/zekara/log", "/Network"}},
      {"InfectedFiles", 0, {"Cure"}},
      {"IncurableFiles", 0, {"Quarantine"}},
      {"SuspiciousFiles", 0, {"Report"}},
      {"ActionAdware", 0, {"Report"}},
      {"ActionDialers", 0, {"Report"}},
      {"ActionJokes", 0, {"Report"}},
      {"ActionRiskware", 0, {"Report"}},
      {"ActionHacktools", 0, {"Report"}},
  };
  EXPECT_EQ(RowsOf(g_filed_defaults), expected);
}

TEST(ZKAConfigDefaults, SupplementingAnEmptyTreeGivesEachRowTheValueOfItsType) {
  const Plist tree = Plist::dictionary();
  PlistSupplementDefaults(tree, "MacOSWardex", g_filed_defaults);
  const Plist section = tree.objectForKey("MacOSWardex");
  EXPECT_EQ(section.count(), 12U);
  EXPECT_EQ(section.objectForKey("IsActive"), Plist("No"));
  EXPECT_EQ(section.objectForKey("FileTimeout"), Plist(30));
  EXPECT_EQ(section.objectForKey("ExcludedPaths"),
            Plist::array({"/dev", "/private/var/log", "/private/var/zekara/run", "/private/var/zekara/log",
                          "/Network"}));
  EXPECT_EQ(section.objectForKey("ActionHacktools"), Plist("Report"));
}

TEST(ZKAConfigDefaults, BooleanConversionsLeaveTheDaemonsTextSwitchesAlone) {
  const Plist tree = Plist::dictionary();
  PlistSupplementDefaults(tree, "Daemon", g_daemon_defaults);
  const Plist section = tree.objectForKey("Daemon");
  SectionBooleansToNumbers(section, g_daemon_defaults);
  EXPECT_EQ(section.objectForKey("RunForeground").kind(), Plist::Kind::Boolean);
  EXPECT_TRUE(section.objectForKey("HeuristicAnalysis").isEqualToString("Yes"));
  EXPECT_TRUE(section.objectForKey("PreFork").isEqualToString("No"));
  EXPECT_TRUE(section.objectForKey("LogScanned").isEqualToString("No"));
}

}  // namespace
}  // namespace zekara
