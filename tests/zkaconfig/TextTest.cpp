#include <gtest/gtest.h>

#include "zkaconfig/Text.h"

namespace zekara {
namespace {

TEST(Printable, ShowsControlCharactersAsTheirCodesAndLeavesTheRest) {
  EXPECT_EQ(Printable("plain \"text\" \\x"), "plain \"text\" \\x");
  EXPECT_EQ(Printable("\x1b[31m\x07\x7f"), "\\x1b[31m\\x07\\x7f");
  EXPECT_EQ(Printable(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(Printable("gr\xC3\xBCn"), "gr\xC3\xBCn");
  EXPECT_EQ(Printable("a\n\tb\r"), "a\\x0a\\x09b\\x0d");
  EXPECT_EQ(Printable("a\n\tb\r", true), "a\n\tb\\x0d");
}

TEST(Printable, ShowsWhatSteersTerminalsBeyondAsciiAsItsBytes) {
  EXPECT_EQ(Printable("\u0080\u009B"), "\\xc2\\x80\\xc2\\x9b");
  EXPECT_EQ(Printable("\u009F\u00A0"), "\\xc2\\x9f\u00A0");
  EXPECT_EQ(Printable("\u2029\u202A\u202E\u202F"), "\u2029\\xe2\\x80\\xaa\\xe2\\x80\\xae\u202F");
  EXPECT_EQ(Printable("\u2065\u2066\u2069\u206A"), "\u2065\\xe2\\x81\\xa6\\xe2\\x81\\xa9\u206A");
  EXPECT_EQ(Printable("a\x9B\xC3"), "a\\x9b\\xc3") << "no UTF-8: a terminal may take the byte for a control";
  EXPECT_EQ(Printable("\U0001F600"), "\U0001F600");
}

TEST(Highlighted, MarksHeadersDefaultsAndDifferences) {
  EXPECT_EQ(HighlightedSettings("[A]\nx = 1\ny = 2  ; default\n\n"),
            "\x1b[1m[A]\x1b[0m\nx = 1\n\x1b[2my = 2  ; default\x1b[0m\n\n");
  EXPECT_EQ(HighlightedSettings("-x = 1\n"), "-x = 1\n") << "a key may begin with a dash";
  EXPECT_EQ(HighlightedDifference("[A]\n-x = 1\n+x = 2\n"),
            "\x1b[1m[A]\x1b[0m\n\x1b[31m-x = 1\x1b[0m\n\x1b[32m+x = 2\x1b[0m\n");
}

TEST(Described, TellsTheKindAndTheValue) {
  EXPECT_EQ(Described(42), "the number 42");
  EXPECT_EQ(Described("o\x1bn"), "the text \"o\\x1bn\"");
  EXPECT_EQ(Described(Plist::array()), "an empty list");
  EXPECT_EQ(Described(Plist::array({1, 2})), "the list (1 2)");
  EXPECT_EQ(Described(Plist::dictionary()), "a dictionary");
}

TEST(SettingLine, IsTheLineAsItIsInTheFile) {
  EXPECT_EQ(SettingLine("Mode", "Auto"), "Mode = Auto");
  EXPECT_EQ(SettingLine("Path", "/dev"), "Path = \"/dev\"");
  EXPECT_EQ(SettingLine("List", Plist::array({"a b", 2})), "List = \"a b\", 2");
  EXPECT_EQ(SettingLine("Empty", ""), "Empty = ");
  EXPECT_EQ(SettingLine("Nothing", Plist::array()), "Nothing = ");
}

TEST(LineAt, CountsTheLineEndsBeforeTheOffset) {
  EXPECT_EQ(LineAt("", 0), 1U);
  EXPECT_EQ(LineAt("a\nb\nc", 2), 2U);
  EXPECT_EQ(LineAt("a\nb\nc", 5), 3U);
}

TEST(FindForeignByte, FindsTheFirstByteThatEndsReading) {
  EXPECT_EQ(FindForeignByte("all of it is ASCII\x7f\t\n"), std::string_view::npos);
  EXPECT_EQ(FindForeignByte("ab\xC3\xBC"), 2U);
  EXPECT_EQ(FindForeignByte(std::string_view("a\0b", 3)), 1U);
}

}  // namespace
}  // namespace zekara
