#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "tests/support/Files.h"
#include "tests/support/LiteralIni.h"
#include "tests/support/PlistGenerator.h"

namespace zekara::test {
namespace {

using namespace std::string_view_literals;

struct DocumentCase {
  const char* name;
  std::string_view bytes;
  const char* tree;  // as DumpParse() gives it
};

void PrintTo(const DocumentCase& one, std::ostream* out) {
  *out << one.name;
}

class ZKAIniParserDocuments : public testing::TestWithParam<DocumentCase> {};

TEST_P(ZKAIniParserDocuments, AreAsTheFormatSays) {
  EXPECT_EQ(DumpParse(GetParam().bytes), GetParam().tree);
}

const DocumentCase kDocumentCases[] = {
    {"EmptyInputIsAnEmptyDocument", "", ""},
    {"BlankLinesAndCommentsAloneAreAnEmptyDocument", "\n\n; a\n\n# b\n\n", ""},
    {"SectionWithOneKey", "[A]\nx = 1\n\n", "[A]\nx = integer 1\n"},
    {"HeaderWithoutKeysMakesNoSection", "[A]\n[B]\nx = 1\n\n", "[B]\nx = integer 1\n"},
    {"RepeatedKeyMakesAList", "[A]\nx = 1\nx = two\n\n", "[A]\nx = list\n  integer 1\n  string \"two\"\n"},
    {"CommasMakeAList", "[A]\na = 1, 2, 3\n\n", "[A]\na = list\n  integer 1\n  integer 2\n  integer 3\n"},
    {"ContinuationLinesMakeAList", "[A]\na = 1\n, 2\n, 3\n\n",
     "[A]\na = list\n  integer 1\n  integer 2\n  integer 3\n"},
    {"SingleValueIsNoList", "[A]\na = x\n\n", "[A]\na = string \"x\"\n"},
    {"LineEndAfterTheCommaIsAnEmptyValue", "[A]\nk = a,\n\n",
     "[A]\nk = list\n  string \"a\"\n  string \"\"\n"},
    {"CommaAtTheVeryEndOfTheFileFails", "[A]\nk = a,\n", "! ini-syntax\n[A]\nk = string \"a\"\n"},
    {"CommaAsTheLastByteIsLost", "[A]\nk = a,", "[A]\nk = string \"a\"\n"},
    {"LineEndAfterEqualsIsAnEmptyValue", "[A]\nk =\n\n", "[A]\nk = string \"\"\n"},
    {"EqualsAndOneLineEndAtTheEndOfTheFileFails", "[A]\nk =\n", "! ini-syntax\n"},
    {"CommentAfterEqualsTakesTheNextLineForTheValue", "[A]\nk = ; note\nm = 2\n",
     "! ini-syntax\n[A]\nk = string \"m\"\n"},
    {"LastByteOfAValueIsLostWithoutALineEnd", "[A]\nkey = value", "[A]\nkey = string \"valu\"\n"},
    {"EmptyHeaderFails", "[]\n", "! ini-syntax\n"},
    {"NameOfAHeaderIsTrimmed", "[ A ]\nx = 1\n", "[A]\nx = integer 1\n"},
    {"NameOfAHeaderIsNeverANumber", "[123]\nx = 1\n", "[123]\nx = integer 1\n"},
    {"NameOfAHeaderMayBeQuoted", "[\"a]b\"]\nx = 1\n", "[a]b]\nx = integer 1\n"},
    {"NameOfAHeaderMayBeEmptyInQuotes", "[\"\"]\nx = 1\n", "[]\nx = integer 1\n"},
    {"NameOfAKeyIsNeverANumber", "[A]\n007 = 1\n", "[A]\n007 = integer 1\n"},
    {"NameOfAKeyMayBeQuoted", "[A]\n\"a=b\" = 1\n", "[A]\na=b = integer 1\n"},
    {"NameOfAKeyKeepsItsInnerBlanks", "[A]\na b = 1\n", "[A]\na b = integer 1\n"},
    {"LineEndBetweenKeyAndEqualsIsSwallowed", "[A]\nk\n= 5\n", "[A]\nk = integer 5\n"},
    {"BlanksDoNotMatter", "[ A ]\n\t k\t =\t v \n", "[A]\nk = string \"v\"\n"},
    {"KeyMayFollowTheHeaderOnItsLine", "[A] k = v\n", "[A]\nk = string \"v\"\n"},
    {"HeaderMayFollowAHeaderOnItsLine", "[A][B] k = v\n", "[B]\nk = string \"v\"\n"},
    {"CommentMayFollowAHeaderOrAValue", "[A] ; one\nk = v # two\nm = w\n",
     "[A]\nk = string \"v\"\nm = string \"w\"\n"},
    {"SameHeaderTwiceContinuesTheSection", "[A]\nk = 1\n[B]\nk = 2\n[A]\nk = 3\nm = 4\n",
     "[A]\nk = list\n  integer 1\n  integer 3\nm = integer 4\n[B]\nk = integer 2\n"},
    {"HeaderDoesNotClearTheCurrentKey", "[A]\nk = 1\n[B]\n, 2\n", "[A]\nk = integer 1\n[B]\nk = integer 2\n"},
    {"BracketInAValueStartsAHeader", "[A]\nx = a[1]\ny = 2\n", "[A]\nx = string \"a\"\n[1]\ny = integer 2\n"},
    {"EqualsInAValueFails", "[A]\nx = a=b\n", "! ini-syntax\n[A]\nx = string \"a\"\n"},
    {"ClosingBracketInAValueFails", "[A]\nx = a]b\n", "! ini-syntax\n[A]\nx = string \"a\"\n"},
    {"SemicolonInAValueStartsAComment", "[A]\nx = a;b\ny = 2\n", "[A]\nx = string \"a\"\ny = integer 2\n"},
    {"QuotedValueKeepsEverySign", "[A]\nx = \"a[1] = b, c; d #\"\n",
     "[A]\nx = string \"a[1] = b, c; d #\"\n"},
    {"NamesDifferInCase", "[A]\nk = 1\nK = 2\n[a]\nk = 3\n",
     "[A]\nk = integer 1\nK = integer 2\n[a]\nk = integer 3\n"},
    {"ByteFrom0x80UpAtTheStartOfATokenEndsTheDocument", "[A]\nx = 1\n\xC3\xA4 = 2\ny = 3\n",
     "[A]\nx = integer 1\n"},
    {"ByteFrom0x80UpAfterEqualsFails", "[A]\nx = \xC3\xA4\ny = 3\n", "! ini-syntax\n"},
    {"ZeroByteEndsTheDocument", "[A]\nx = 1\n\0y = 3\n"sv, "[A]\nx = integer 1\n"},
    {"ValueInQuotesEndedByAByteFrom0x80UpIsKept", "[A]\nx = \"gr\xC3\xBCn\"\ny = 3\n",
     "[A]\nx = string \"gr\"\n"},
    // Every token that fails.
    {"ClosingBracketAtTheStartOfAnItemFails", "]\n", "! ini-syntax\n"},
    {"EqualsAtTheStartOfAnItemFails", "=\n", "! ini-syntax\n"},
    {"OpenBracketAfterAnOpenBracketFails", "[[A]\n", "! ini-syntax\n"},
    {"EqualsAfterAnOpenBracketFails", "[=\n", "! ini-syntax\n"},
    {"CommaAfterAnOpenBracketFails", "[,\n", "! ini-syntax\n"},
    {"LineEndAfterAnOpenBracketFails", "[\nA]\n", "! ini-syntax\n"},
    {"EndAfterAnOpenBracketFails", "[\n", "! ini-syntax\n"},
    {"OpenBracketInAHeaderFails", "[A[\n", "! ini-syntax\n"},
    {"EqualsInAHeaderFails", "[A=]\n", "! ini-syntax\n"},
    {"CommaInAHeaderFails", "[A,B]\n", "! ini-syntax\n"},
    {"EndInAHeaderFails", "[A\n", "! ini-syntax\n"},
    {"ClosingBracketAsTheLastByteFails", "[A]", "! ini-syntax\n"},
    {"StringAfterTheQuotedNameOfAHeaderFails", "[\"A\"B]\n", "! ini-syntax\n"},
    {"LineEndAfterBlanksAfterTheQuotedNameOfAHeaderFails", "[\"A\" \n]\n", "! ini-syntax\n"},
    {"OpenBracketAfterAKeyFails", "[A]\nk[\n", "! ini-syntax\n"},
    {"ClosingBracketAfterAKeyFails", "[A]\nk]\n", "! ini-syntax\n"},
    {"CommaAfterAKeyFails", "[A]\nk, v\n", "! ini-syntax\n"},
    {"StringAfterAKeyFails", "[A]\n\"k\" v = 1\n", "! ini-syntax\n"},
    {"EndAfterAKeyFails", "[A]\nk\n", "! ini-syntax\n"},
    {"CommentAfterAKeyTakesTheLineEndAlong", "[A]\nk ; note\n= 1\n", "[A]\nk = integer 1\n"},
    {"EqualsAfterEqualsFails", "[A]\nk = = v\n", "! ini-syntax\n"},
    {"CommaAfterEqualsFails", "[A]\nk = , v\n", "! ini-syntax\n"},
    {"OpenBracketAfterEqualsFails", "[A]\nk = [B]\n", "! ini-syntax\n"},
    {"ClosingBracketAfterEqualsFails", "[A]\nk = ]\n", "! ini-syntax\n"},
    {"EndAfterEqualsFails", "[A]\nk = \n", "! ini-syntax\n"},
    {"CommaAfterACommaFails", "[A]\nk = a,, b\n", "! ini-syntax\n[A]\nk = string \"a\"\n"},
    {"EqualsAfterACommaFails", "[A]\nk = a, = b\n", "! ini-syntax\n[A]\nk = string \"a\"\n"},
    // Names that are missing.
    {"KeyBeforeTheFirstHeaderIsAnInvalidArgument", "k = 1\n[A]\n", "! NSInvalidArgumentException\n"},
    {"ContinuationBeforeTheFirstHeaderIsAnInvalidArgument", ", 1\n", "! NSInvalidArgumentException\n"},
    {"ContinuationBeforeTheFirstKeyIsAnInvalidArgument", "[A]\n, 1\n", "! NSInvalidArgumentException\n[A]\n"},
};

INSTANTIATE_TEST_SUITE_P(Documents, ZKAIniParserDocuments, testing::ValuesIn(kDocumentCases),
                         [](const auto& test) { return test.param.name; });

TEST(ZKAIniParser, SyntaxErrorCarriesItsNameAndReason) {
  ZKAIniParser parser = ZKAIniParser::initWithData("[A]\nx = 1\n]\ny = 2\n");
  try {
    parser.parse();
    FAIL() << "no exception";
  } catch (const NSException& exception) {
    EXPECT_EQ(exception.name(), "ini-syntax");
    EXPECT_EQ(exception.reason(), "unexpected token");
  }
}

TEST(ZKAIniParser, ParserThatHasMovedReadsOnWhereItWas) {
  ZKAIniParser first = ZKAIniParser::initWithData("[A]\nname = a value that is too long for a handle\n\n");
  ZKAIniParser second = std::move(first);
  const auto document = second.parse();
  EXPECT_EQ(document->asIni(), "[A]\nname = \"a value that is too long for a handle\"\n\n");
  first = std::move(second);
  EXPECT_EQ(first.parse(), document);
}

TEST(ZKAIniParser, LineIsTheFirstBeforeAnythingIsRead) {
  EXPECT_EQ(ZKAIniParser::initWithData("\n\n[A]\n").line(), 1U);
}

TEST(ZKAIniParser, LineIsThatOfTheItemThatWasBegunLast) {
  constexpr struct {
    const char* bytes;
    std::size_t line;
  } kCases[] = {
      {"]\n\n", 1},
      {"[A]\nx = 1\ny\nz = 2\n\n", 3},
      {"[A]\nx = 1\n, =\n\n", 3},
      {"[A]\nx = a = b\ny = 1\n\n", 2},
      {"[A]\nx = ; a comment takes its line end along\ny = 1\n\n", 2},
      {"[A]\n\n\n[\n\n", 4},
  };
  for (const auto& [bytes, line] : kCases) {
    ZKAIniParser parser = ZKAIniParser::initWithData(bytes);
    EXPECT_THROW(parser.parse(), NSException) << bytes;
    EXPECT_EQ(parser.line(), line) << bytes;
  }
}

TEST(ZKAIniParser, ParseAfterAFailureReturnsWhatHadBeenReadBeforeIt) {
  ZKAIniParser parser = ZKAIniParser::initWithData("[A]\nx = 1\n]\ny = 2\n");
  EXPECT_THROW(parser.parse(), NSException);
  const auto partial = parser.parse();
  EXPECT_EQ(DumpIniTree(partial->asDictionary()), "[A]\nx = integer 1\n");
  EXPECT_EQ(parser.parse(), partial);
}

TEST(ZKAIniParser, SecondParseReturnsTheSameDocument) {
  ZKAIniParser parser = ZKAIniParser::initWithData("[A]\nx = 1\n");
  const auto document = parser.parse();
  document->setObject_forKey_inSection("changed", "x", "A");
  EXPECT_EQ(parser.parse(), document);
  EXPECT_TRUE(parser.parse()->objectForKey_inSection("x", "A").isEqualToString("changed"));
}

TEST(ZKAIniParser, SecondParseReadsNoFurtherThanAnEndInsideTheInput) {
  ZKAIniParser parser = ZKAIniParser::initWithData("[A]\nx = 1\n\x80[B]\ny = 2\n");
  EXPECT_EQ(parser.parse()->asDictionary().count(), 1U);
  EXPECT_EQ(parser.parse()->asDictionary().count(), 1U);
}

TEST(ZKAIniParser, DocumentOutlivesItsParser) {
  const auto document = ZKAIniParser::initWithData("[A]\nx = 1\n").parse();
  EXPECT_EQ(document->objectForKey_inSection("x", "A"), Plist(1));
}

TEST(ZKAIniParser, GivesTheDocumentOfTheLiteralParserForRandomBytes) {
  constexpr std::string_view kPieces[] = {"[A]", "[B]", "k",    "m", "=",    "=",   "=",  ",",
                                          "\n",  "\n",  "\r\n", " ", "1",    "v w", "\"", "\"q\"",
                                          ";",   "#",   "]",    "[", "\x80", "\t"};
  for (std::uint32_t seed = 0; seed < 20000; ++seed) {
    const std::string random = RandomBytes(seed, seed % 40);
    std::string bytes = "[S]\n";
    for (const char c : random) bytes += kPieces[static_cast<unsigned char>(c) % std::size(kPieces)];
    ASSERT_EQ(DumpParse(bytes), LiteralParse(bytes)) << "seed " << seed;
  }
}

// Whole documents: name.ini is read, name.tree is the expected tree, name.written the expected text of it.

std::string DataDirectory() {
  return std::string(ZEKARA_SOURCE_DIR) + "/tests/Zekara4MacLibrary/data";
}

std::vector<std::string> DocumentNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(DataDirectory())) {
    if (entry.path().extension() == ".ini") names.push_back(entry.path().stem().string());
  }
  std::ranges::sort(names);
  return names;
}

class ZKAIniParserGolden : public testing::TestWithParam<std::string> {};

TEST_P(ZKAIniParserGolden, DocumentIsReadAndWrittenBackAsRecorded) {
  const std::string path = DataDirectory() + "/" + GetParam();
  const std::string bytes = ReadFile(path + ".ini");
  EXPECT_EQ(DumpParse(bytes), ReadFile(path + ".tree"));
  EXPECT_EQ(LiteralParse(bytes), ReadFile(path + ".tree"));
  if (!std::filesystem::exists(path + ".written")) return;  // a document that cannot be read is not written
  EXPECT_EQ(ZKAIniParser::initWithData(bytes).parse()->asIni(), ReadFile(path + ".written"));
}

INSTANTIATE_TEST_SUITE_P(Documents, ZKAIniParserGolden, testing::ValuesIn(DocumentNames()),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace zekara::test
