#include <algorithm>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAConfigDefaults.h"

namespace zekara {
namespace {

// Front ends have these numbers in tables of their own.
static_assert(DefaultTypeString == 0 && DefaultTypeNumber == 1 && DefaultTypeBoolean == 2 &&
              DefaultTypeList == 3);

struct Row {
  std::string key;
  std::uint32_t type;
  std::vector<std::string> texts;  // one text; several for a list

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

// The rows of the manual page's table that follows the heading: ".It KEY Ta TYPE Ta DEFAULT". Where the
// default is "see below", the paths below the table are the texts, in the order of the keys, and a list takes
// all of them that are left for it.
class ManualSection {
 public:
  explicit ManualSection(const std::string& heading) {
    std::ifstream page(ZEKARA_SOURCE_DIR "/man/zekara32.ini.5");
    std::string line;
    while (std::getline(page, line) && line != ".Sh SECTION " + heading) {
    }
    while (std::getline(page, line) && !line.starts_with(".Sh ")) read(line);
    takePaths();
  }
  const std::vector<Row>& rows() const { return rows_; }

 private:
  void read(const std::string& line) {
    static const std::regex row(R"(\.It (\w+) Ta (\w+) Ta (?:\\&|Pa )?(.*))");
    static const std::regex path(R"(\.Pa (.*?)(?: [.,])?)");
    std::smatch parts;
    if (std::regex_match(line, parts, row)) rows_.push_back({parts[1], typeOf(parts[2]), {parts[3]}});
    if (std::regex_match(line, parts, path)) paths_.push_back(parts[1]);
  }
  static std::uint32_t typeOf(const std::string& word) {
    if (word == "boolean") return DefaultTypeBoolean;
    if (word == "number") return DefaultTypeNumber;
    return word == "list" ? DefaultTypeList : DefaultTypeString;
  }
  void takePaths() {
    auto next = paths_.begin();
    for (Row& row : rows_) {
      if (row.texts[0] != "see below" || next == paths_.end()) continue;
      const auto end = row.type == DefaultTypeList ? paths_.end() : next + 1;
      row.texts.assign(next, end);
      next = end;
    }
  }

  std::vector<Row> rows_;
  std::vector<std::string> paths_;
};

TEST(ZKAConfigDefaults, TablesAreThoseOfTheManualPage) {
  const ManualSection fileMonitor("MACOSWARDEX");
  const ManualSection updater("UPDATED");
  const ManualSection daemon("OF THE SCANNING DAEMON");
  EXPECT_EQ(RowsOf(g_filed_defaults), fileMonitor.rows());
  EXPECT_EQ(RowsOf(g_updated_defaults), updater.rows());
  EXPECT_EQ(RowsOf(g_daemon_defaults), daemon.rows());
}

TEST(ZKAConfigDefaults, EveryTargetOfAnActionHasAnActionByDefault) {
  for (std::int32_t target = 1; target <= 8; ++target) {
    const std::vector<Row> rows = RowsOf(g_filed_defaults);
    const auto row = std::ranges::find(rows, target2string(target), &Row::key);
    ASSERT_NE(row, rows.end()) << target2string(target);
    EXPECT_NE(string2action(row->texts[0].c_str()), 0) << row->texts[0];
  }
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
