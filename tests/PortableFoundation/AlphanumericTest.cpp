#include <cstdint>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortableFoundation/Alphanumeric.h"
#include "tests/support/Files.h"

namespace zekara::test {
namespace {

constexpr char32_t kCodePoints = 0x110000;
constexpr const char* kDatabase = "/usr/share/unicode/UnicodeData.txt";
// Its first line names the version of the database.
constexpr const char* kVersioned = "/usr/share/unicode/DerivedAge.txt";
// The version from which the table was made. It cannot be compared with the categories of another version.
constexpr const char* kVersion = "# DerivedAge-15.0.";

std::string FirstLine(const char* path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The first letter of every code point's general category, or C if the database has no entry for it.
std::string ReadCategories() {
  std::string categories(kCodePoints, 'C');
  std::ifstream database(kDatabase);
  std::size_t blockStart = 0;
  for (std::string line; std::getline(database, line);) {
    const std::size_t name = line.find(';') + 1;
    const std::size_t category = line.find(';', name) + 1;
    const std::size_t code = std::stoul(line, nullptr, 16);
    const bool endsBlock = line.find(", Last>") != std::string::npos;
    if (!endsBlock) blockStart = code;
    for (std::size_t i = blockStart; i <= code; ++i) categories[i] = line[category];
  }
  return categories;
}

std::string Encode(char32_t codePoint) {
  const auto byte = [](char32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
  if (codePoint < 0x80) return {byte(codePoint)};
  const char last = byte(0x80 | (codePoint & 0x3F));
  if (codePoint < 0x800) return {byte(0xC0 | codePoint >> 6), last};
  const char third = byte(0x80 | (codePoint >> 6 & 0x3F));
  if (codePoint < 0x10000) return {byte(0xE0 | codePoint >> 12), third, last};
  return {byte(0xF0 | codePoint >> 18), byte(0x80 | (codePoint >> 12 & 0x3F)), third, last};
}

class AlphanumericDatabase : public testing::Test {
 protected:
  void SetUp() override {
    if (access(kDatabase, R_OK) != 0)
      GTEST_SKIP() << kDatabase << " is missing; it is in the package unicode-data";
    if (!FirstLine(kVersioned).starts_with(kVersion))
      GTEST_SKIP() << "The table is that of Unicode 15.0, and the system's database is "
                   << FirstLine(kVersioned);
    categories_ = ReadCategories();
  }
  bool isWanted(char32_t codePoint) const {
    return std::string_view("LMN").find(categories_[codePoint]) != std::string_view::npos;
  }
  std::string categories_;
};

TEST_F(AlphanumericDatabase, HasTheCategoriesThatEverybodyKnows) {
  EXPECT_EQ(categories_['A'], 'L');
  EXPECT_EQ(categories_['7'], 'N');
  EXPECT_EQ(categories_[0x301], 'M');
  EXPECT_EQ(categories_[0x4E01], 'L');  // inside a block that the database lists by its ends
  EXPECT_EQ(categories_[' '], 'Z');
  EXPECT_EQ(categories_[0x10FFFF], 'C');
}

TEST_F(AlphanumericDatabase, EveryCodePointIsAlphanumericAsItsCategorySays) {
  int wrong = 0;
  for (char32_t codePoint = 0; codePoint < kCodePoints; ++codePoint) {
    if (IsAlphanumeric(codePoint) != isWanted(codePoint) && ++wrong < 10) {
      ADD_FAILURE() << "code point " << std::hex << static_cast<std::uint32_t>(codePoint) << " of category "
                    << categories_[codePoint];
    }
  }
  EXPECT_EQ(wrong, 0);
}

TEST_F(AlphanumericDatabase, EveryCharacterOfATextIsJudgedByItsCodePoint) {
  int wrong = 0;
  for (char32_t codePoint = 0; codePoint < kCodePoints; ++codePoint) {
    if (codePoint >= 0xD800 && codePoint < 0xE000) continue;
    const std::string character = Encode(codePoint);
    const bool isWhole = IsAlphanumericText(character) && IsAlphanumericText("a" + character) &&
                         IsAlphanumericText(character + "9");
    if (isWhole != isWanted(codePoint)) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}

TEST_F(AlphanumericDatabase, GeneratedTableIsUpToDate) {
  const TemporaryDirectory directory;
  const std::string output = directory / "ranges.h";
  const std::string source = ZEKARA_SOURCE_DIR;
  const std::string command = "'" + source + "/scripts/generate-alphanumeric-ranges' --output '" + output +
                              "' >'" + (directory / "log") + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_TRUE(ReadFile(output) == ReadFile(source + "/PortableFoundation/AlphanumericRanges.h"));
  EXPECT_FALSE(ReadFile(output).empty());
}

TEST(Alphanumeric, CodePointBeyondUnicodeIsNotAlphanumeric) {
  EXPECT_FALSE(IsAlphanumeric(kCodePoints));
  EXPECT_FALSE(IsAlphanumeric(0xFFFFFFFF));
}

struct Text {
  const char* name;
  std::string_view text;
  bool isAlphanumeric;
};

class AlphanumericText : public testing::TestWithParam<Text> {};

TEST_P(AlphanumericText, IsJudged) {
  EXPECT_EQ(IsAlphanumericText(GetParam().text), GetParam().isAlphanumeric);
}

using namespace std::literals;

INSTANTIATE_TEST_SUITE_P(
    Texts, AlphanumericText,
    testing::Values(Text{"Empty", "", true}, Text{"Word", "Yes", true}, Text{"Digits", "43200", true},
                    Text{"Blank", "Yes No", false}, Text{"Path", "/dev", false},
                    Text{"LastIsWrong", "Yes.", false}, Text{"FirstIsWrong", "-1", false},
                    Text{"Underline", "a_b", false}, Text{"Nul", "a\0b"sv, false},
                    Text{"LatinOne", "\xC3\xA9t\xC3\xA9", true}, Text{"Cyrillic", "\xD0\x94\xD0\xB0", true},
                    Text{"CombiningAccent", "e\xCC\x81", true}, Text{"RomanNumber", "\xE2\x85\xA7", true},
                    Text{"EmDash", "a\xE2\x80\x94", false}, Text{"Emoji", "\xF0\x9F\x98\x80", false},
                    Text{"BeyondTheBasicPlane", "\xF0\x90\x90\x80", true},
                    Text{"LoneContinuation", "\x80", false}, Text{"CutSequence", "a\xC3", false},
                    Text{"OverlongA", "\xC1\x81", false}, Text{"Surrogate", "\xED\xA0\x80", false},
                    Text{"BeyondUnicode", "\xF4\x90\x80\x80", false}, Text{"LatinOneByte", "caf\xE9", false}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace zekara::test
