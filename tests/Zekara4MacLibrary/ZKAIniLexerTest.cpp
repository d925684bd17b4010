#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>

#include "Zekara4MacLibrary/ZKAIniLexer.h"
#include "tests/support/LiteralIni.h"
#include "tests/support/PlistGenerator.h"

namespace zekara {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

// Returns every token up to the end in a compact notation: [ ] = , for themselves, ~ for a line end, (text)
// for a string, . for the end.
std::string Tokens(std::string_view bytes) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(std::string(bytes));
  std::string tokens;
  for (;;) {
    const std::int32_t token = lexer.nextToken();
    EXPECT_EQ(lexer.token(), token);
    if (token < ZKAIniTokenOpenBracket || token > ZKAIniTokenEnd) return tokens + "?";
    if (token == ZKAIniTokenString) {
      tokens.append("(").append(lexer.string()).append(")");
    } else {
      tokens += "?[]=,?~."[token];
    }
    if (token == ZKAIniTokenEnd) return tokens;
  }
}

Plist FirstValue(std::string_view bytes) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(std::string(bytes));
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenString);
  return lexer.value();
}

TEST(ZKAIniLexer, TokenNumbersAreThoseOfTheInterface) {
  EXPECT_EQ(ZKAIniTokenNone, 0);
  EXPECT_EQ(ZKAIniTokenOpenBracket, 1);
  EXPECT_EQ(ZKAIniTokenCloseBracket, 2);
  EXPECT_EQ(ZKAIniTokenEquals, 3);
  EXPECT_EQ(ZKAIniTokenComma, 4);
  EXPECT_EQ(ZKAIniTokenString, 5);
  EXPECT_EQ(ZKAIniTokenEndOfLine, 6);
  EXPECT_EQ(ZKAIniTokenEnd, 7);
}

TEST(ZKAIniLexer, TokenIsNoneBeforeTheFirstIsTaken) {
  EXPECT_EQ(ZKAIniLexer::initWithData("word\n").token(), ZKAIniTokenNone);
}

TEST(ZKAIniLexer, LexerThatHasMovedReadsOnWhereItWas) {
  const std::string word(100, 'w');
  ZKAIniLexer first = ZKAIniLexer::initWithData(word + ", " + word + ", last\n");
  first.nextToken();
  const Plist value = first.value();
  ZKAIniLexer second = std::move(first);
  EXPECT_EQ(second.value(), value);
  EXPECT_EQ(second.nextToken(), ZKAIniTokenComma);
  second.nextToken();
  EXPECT_EQ(second.value(), value);
  ZKAIniLexer third = ZKAIniLexer::initWithData("other\n");
  third = std::move(second);
  EXPECT_EQ(third.nextToken(), ZKAIniTokenComma);
  third.nextToken();
  EXPECT_EQ(third.value(), Plist("last"));
  EXPECT_EQ(value, Plist(word));
}

// offset() and lineAt()

TEST(ZKAIniLexer, OffsetIsThatOfTheTokensFirstByteBehindBlanksAndComments) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(" [A]\n; note\n\t\"q\" = b\n");
  EXPECT_EQ(lexer.offset(), 0U);
  for (const std::size_t offset : {1U, 2U, 3U, 4U, 13U, 17U, 19U}) {
    lexer.nextToken();
    EXPECT_EQ(lexer.offset(), offset);
  }
}

TEST(ZKAIniLexer, LinesAreCountedByTheirLineFeeds) {
  const ZKAIniLexer lexer = ZKAIniLexer::initWithData("a\r\nb\n\nc\rd\n");
  EXPECT_EQ(lexer.lineAt(0), 1U);
  EXPECT_EQ(lexer.lineAt(2), 1U);
  EXPECT_EQ(lexer.lineAt(3), 2U);
  EXPECT_EQ(lexer.lineAt(6), 4U);
  EXPECT_EQ(lexer.lineAt(8), 4U);
  EXPECT_EQ(lexer.lineAt(1000), 4U) << "the last byte is not part of the input";
}

// getc() and ungetc()

TEST(ZKAIniLexer, LastByteOfTheInputIsNeverReturned) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("abc");
  EXPECT_EQ(lexer.getc(), 'a');
  EXPECT_EQ(lexer.getc(), 'b');
  EXPECT_EQ(lexer.getc(), 0);
  EXPECT_EQ(lexer.getc(), 0);
}

TEST(ZKAIniLexer, BytesFrom0x80UpAreNegativeCharacters) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("\x7F\x80\xFF\0x"s);
  EXPECT_EQ(lexer.getc(), 127);
  EXPECT_EQ(lexer.getc(), -128);
  EXPECT_EQ(lexer.getc(), -1);
  EXPECT_EQ(lexer.getc(), 0);
  EXPECT_EQ(lexer.getc(), 0);
}

TEST(ZKAIniLexer, UngetcGivesTheCharacterAgain) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("ab\n");
  EXPECT_EQ(lexer.getc(), 'a');
  lexer.ungetc();
  EXPECT_EQ(lexer.getc(), 'a');
  EXPECT_EQ(lexer.getc(), 'b');
}

TEST(ZKAIniLexer, EachUngetcAtTheEndTakesOneStepBack) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("ab");
  EXPECT_EQ(lexer.getc(), 'a');
  for (int i = 0; i < 3; ++i) EXPECT_EQ(lexer.getc(), 0);
  lexer.ungetc();
  lexer.ungetc();
  EXPECT_EQ(lexer.getc(), 0) << "four characters taken, two given back: the next is the third";
  lexer.ungetc();
  lexer.ungetc();
  lexer.ungetc();
  EXPECT_EQ(lexer.getc(), 'a');
}

// nextToken()

struct TokenCase {
  const char* name;
  std::string_view bytes;
  const char* tokens;
};

void PrintTo(const TokenCase& one, std::ostream* out) {
  *out << one.name;
}

class ZKAIniLexerTokens : public testing::TestWithParam<TokenCase> {};

TEST_P(ZKAIniLexerTokens, AreAsTheFormatSays) {
  EXPECT_EQ(Tokens(GetParam().bytes), GetParam().tokens);
}

const TokenCase kTokenCases[] = {
    // The end
    {"EmptyInputEndsAtOnce", "", "."},
    {"InputOfOneByteEndsAtOnce", "x", "."},
    {"OneBracketAloneIsNeverSeen", "[", "."},
    {"FinalLineEndIsNeverSeen", "\n", "."},
    {"LastByteOfAnUnendedLineIsLost", "key = value", "(key)=(valu)."},
    {"OneLetterWordWithoutLineEndIsLost", "a=b", "(a)=."},
    {"ZeroByteAtTheStartOfATokenEndsTheInput", "a\n\0b = c\n"sv, "(a)."},
    {"ByteFrom0x80UpAtTheStartOfATokenEndsTheInput", "a =\n\xC3\xA4 = b\n", "(a)=~."},
    {"Byte0x80EndsTheInput", "= \x80 =\n", "=."},
    {"Byte0xFFEndsTheInput", "= \xFF =\n", "=."},
    {"Byte0x7FIsAWord", "= \x7F =\n", "=(\x7F)=."},
    {"ByteFrom0x80UpEndsAWordAndThenTheInput",
     "ab\xC3\xA4"
     "c = 1\n",
     "(ab)."},
    {"ZeroByteEndsAWordAndThenTheInput", "ab\0c = 1\n"sv, "(ab)."},
    // Single characters
    {"PunctuationTokensStandForThemselves", "[]=,\n", "[]=,."},
    {"LineEndAfterABracketIsATokenOfItsOwn", "[A]\nx", "[(A)]~."},
    {"LineEndAfterEqualsIsATokenOfItsOwn", "a =\nb", "(a)=~."},
    {"LineEndAfterACommaIsATokenOfItsOwn", ",\nb", ",~."},
    {"BlanksBeforeATokenAreSkipped", " \t [ \t ] \n", "[]."},
    {"WholeSectionWithOneKey", "[Main]\nx=1\n", "[(Main)]~(x)=(1)."},
    // Line ends
    {"LineFeedsMerge", "=\n\n\n=\n", "=~=."},
    {"CarriageReturnsMerge", "=\r\r=\n", "=~=."},
    {"ThreeBlankLinesInCrLfFormMakeOneLineEnd", "\r\n\r\n\r\n=\n", "~=."},
    {"LfCrMakesOneLineEnd", "\n\r=\n", "~=."},
    {"BlankBetweenLineEndsSeparatesThem", "\n \n=\n", "~~=."},
    {"LineEndAtTheVeryStartIsAToken", "\nx\n", "~(x)."},
    {"LineEndsBeforeAnEndCharacterAreAToken", "=\n\n\x80\n", "=~."},
    // Comments
    {"CommentYieldsNoTokenAndSwallowsItsLineEnd", "; note\nx\n", "(x)."},
    {"HashCommentLikewise", "# note\nx\n", "(x)."},
    {"CommentSwallowsAllTheLineEndsAfterIt", "; note\r\n\r\n\nx\n", "(x)."},
    {"CommentsInARowYieldNothing", ";a\n#b\n;c\n=\n", "=."},
    {"CommentAfterAWordEndsTheWord", "a b  ; note\nx\n", "(a b)(x)."},
    {"CommentMayFollowAHeader", "[A]; note\nx\n", "[(A)](x)."},
    {"CommentHoldsEveryOtherSign", "; [a] = \"b, ; #\nx\n", "(x)."},
    {"EmptyComment", ";\nx\n", "(x)."},
    {"CommentAtTheEndOfTheInput", "x ; note", "(x)."},
    {"BlankLineAfterBlanksAfterACommentIsAToken", ";a\n \nx\n", "~(x)."},
    {"ByteFrom0x80UpInACommentEndsTheInput", "; caf\xC3\xA9\nx = 1\n", "."},
    {"ZeroByteInACommentEndsTheInput", "; a\0b\nx = 1\n"sv, "."},
    {"EndCharacterAfterTheLineEndOfACommentEndsTheInput", "; a\n\x80x = 1\n", "."},
    // Quoted strings
    {"QuotedStringKeepsEverySign", "\"a;b = c\"\n", "(a;b = c)."},
    {"QuotedStringKeepsBracketsCommasAndHashes", "\"[a], #b\"\n", "([a], #b)."},
    {"QuotedStringKeepsLineEnds", "\"a\r\nb\"\n", "(a\r\nb)."},
    {"QuotedStringSwallowsTheLineEndsAfterIt", "\"a\"\n\r\n=\n", "(a)=."},
    {"LineEndAfterBlanksAfterAQuoteIsAToken", "\"a\" \n=\n", "(a)~=."},
    {"EmptyQuotedString", "\"\"\n", "()."},
    {"BackslashEscapesNothing", "\"a\\\"b\"\n=\n", "(a\\)(b\")=."},
    {"UnterminatedStringRunsToTheEnd", "\"abc\n", "(abc)."},
    {"UnterminatedStringLosesTheLastByteAsEverythingDoes", "\"abc", "(ab)."},
    {"QuoteAsTheLastByteIsNeverSeen", "\"abc\"", "(abc)."},
    {"LoneQuoteBeforeTheLastByte", "\"\n", "()."},
    {"ByteFrom0x80UpEndsAQuotedStringAndIsDropped",
     "\"gr\xC3\xBC"
     "n\"\n",
     "(gr)."},
    {"ZeroByteEndsAQuotedStringAndIsDropped", "\"ab\0cd\n"sv, "(ab)(cd)."},
    {"LineEndsAfterAStringEndedByAnEndCharacterBelongToIt", "\"ab\x80\n\ncd\n", "(ab)(cd)."},
    {"WordMayFollowAQuoteDirectly", "\"a\"b\n", "(a)(b)."},
    // Words
    {"WordStopsAtEachTerminator", "a[b]c=d,e;f\ng#h\ni\n", "(a)[(b)](c)=(d),(e)(g)(i)."},
    {"WordSwallowsTheLineEndsAfterIt", "a\n\r\n\nb\n", "(a)(b)."},
    {"WordKeepsItsInnerBlanks", "a \t b\n", "(a \t b)."},
    {"WordIsTrimmedOfBlanksAndTabs", "a \t \n=\n", "(a)=."},
    {"LineEndAfterTheBlanksOfAWordBelongsToTheWord", "a  \n=\n", "(a)=."},
    {"QuoteInsideAWordIsAnOrdinaryCharacter", "x\"y\n", "(x\"y)."},
    {"FormFeedIsAWordAndNotTrimmed", "\f a \f\n", "(\f a \f)."},
    {"VerticalTabIsAWordAndNotTrimmed", "\va\v\n", "(\va\v)."},
    {"EveryOtherControlCharacterIsAWord", "\x01\x02\x1F\x1B\n", "(\x01\x02\x1F\x1B)."},
    {"PunctuationMakesWords", "!$%&'()*+-./:<>?@\\^_`{|}~\n", "(!$%&'()*+-./:<>?@\\^_`{|}~)."},
};

INSTANTIATE_TEST_SUITE_P(Tokens, ZKAIniLexerTokens, testing::ValuesIn(kTokenCases),
                         [](const auto& test) { return test.param.name; });

TEST(ZKAIniLexer, TrueEndIsReturnedAgainAndAgain) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("a\n");
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenString);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEnd);
}

TEST(ZKAIniLexer, EndInsideTheInputIsConsumedAndReadingGoesOnBehindIt) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("\x80=\0,\n"s);
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEnd);
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEquals);
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEnd);
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenComma);
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEnd);
}

TEST(ZKAIniLexer, TextLivesUntilTheNextTokenAndIsEmptyThen) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(" 42 =\n");
  EXPECT_EQ(lexer.string(), "");
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenString);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(lexer.string(), "42");
    EXPECT_EQ(lexer.value(), Plist(42));
  }
  EXPECT_EQ(lexer.nextToken(), ZKAIniTokenEquals);
  EXPECT_EQ(lexer.string(), "");
  EXPECT_EQ(lexer.value(), Plist(""));
}

// value()

struct ValueCase {
  const char* name;
  std::string_view bytes;
  Plist value;
};

void PrintTo(const ValueCase& one, std::ostream* out) {
  *out << one.name;
}

class ZKAIniLexerValue : public testing::TestWithParam<ValueCase> {};

TEST_P(ZKAIniLexerValue, IsAsTheFormatSays) {
  const Plist value = FirstValue(GetParam().bytes);
  EXPECT_EQ(value.kind(), GetParam().value.kind());
  EXPECT_EQ(value, GetParam().value) << value.description();
}

const ValueCase kValueCases[] = {
    {"DigitsAreANumber", "16\n", 16},
    {"LeadingZerosVanish", "00123\n", 123},
    {"ZerosAloneAreZero", "000\n", 0},
    {"BlanksAroundDigitsDoNotMatter", "42 \t\n", 42},
    {"QuotedDigitsAreANumberToo", "\"42\"\n", 42},
    {"BlanksWithinTheQuotesDoNotMatter", "\" 42\t\"\n", 42},
    {"LargestNumber", "2147483647\n", 2147483647},
    {"NumberBeyondTheLargestIsClamped", "2147483648\n", 2147483647},
    {"NumberFarBeyondIsClamped", "99999999999\n", 2147483647},
    {"NumberThatWouldWrapIsClamped", "4294967297\n", 2147483647},
    {"NumberBeyondSixtyFourBitsIsClamped", "18446744073709551617\n", 2147483647},
    {"NumberBeyondIsClampedBehindZeros", "00000000000000000000000000000000012\n", 12},
    {"SignKeepsItAString", "-1\n", "-1"},
    {"PlusKeepsItAString", "+5\n", "+5"},
    {"PointKeepsItAString", "1.5\n", "1.5"},
    {"InnerBlankKeepsItAString", "1 2\n", "1 2"},
    {"LetterKeepsItAString", "0x10\n", "0x10"},
    {"EmptyQuotedStringStaysAString", "\"\"\n", ""},
    {"QuotedBlanksAreTheEmptyString", "\" \t \"\n", ""},
    {"QuotesDoNotProtectBlanksAtTheEnds", "\"  a b \"\n", "a b"},
    {"LineEndsWithinTheQuotesAreNotTrimmed", "\"\n12\n\"\n", "\n12\n"},
    {"FormFeedBesideDigitsKeepsThemAString", "12\f\n", "12\f"},
};

INSTANTIATE_TEST_SUITE_P(Values, ZKAIniLexerValue, testing::ValuesIn(kValueCases),
                         [](const auto& test) { return test.param.name; });

TEST(ZKAIniLexer, LongDigitStringsAreClampedWhateverTheirLength) {
  EXPECT_EQ(FirstValue(std::string(100000, '9') + "\n"), Plist(2147483647));
  EXPECT_EQ(FirstValue(std::string(100000, '0') + "7\n"), Plist(7));
}

// Against a second lexer

// Makes random bytes, most of which have a meaning in the format.
std::string RandomIniBytes(std::uint32_t seed) {
  constexpr std::string_view kSigns = "[]=,;#\n\r\"\" \tab0129\0\x80\xFF\f\\"sv;
  std::string bytes = RandomBytes(seed, seed % 120);
  for (char& byte : bytes) {
    const auto number = static_cast<unsigned char>(byte);
    if (number < 240) byte = kSigns[number % kSigns.size()];
  }
  return bytes;
}

// Reads on after the first end, up to the largest possible number of tokens.
void ExpectTheTokensOfTheLiteralLexer(const std::string& bytes) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(bytes);
  LiteralLexer literal(bytes);
  for (std::size_t i = 0; i < bytes.size() + 3; ++i) {
    const int expected = literal.nextToken();
    ASSERT_EQ(lexer.nextToken(), expected) << "token " << i;
    ASSERT_EQ(lexer.string(), literal.string()) << "token " << i;
    ASSERT_EQ(DumpIniValue(lexer.value()), literal.value()) << "token " << i;
  }
}

TEST(ZKAIniLexer, GivesTheTokensOfTheLiteralLexerForRandomBytes) {
  for (std::uint32_t seed = 0; seed < 20000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ASSERT_NO_FATAL_FAILURE(ExpectTheTokensOfTheLiteralLexer(RandomIniBytes(seed)));
  }
}

// The lexer looks at blocks of bytes, so the byte that ends a part is put into each place of a block.
TEST(ZKAIniLexer, EndsAPartAtTheSameByteAsTheLiteralLexerWhereverThatByteIs) {
  for (const std::string start : {"", "\"", "#"}) {
    for (std::size_t before = 0; before < 35; ++before) {
      for (int byte = 0; byte < 256; ++byte) {
        for (const std::size_t behind : {0U, 1U, 20U}) {
          SCOPED_TRACE(start + " byte " + std::to_string(byte) + " behind " + std::to_string(before));
          const std::string part = start + std::string(before, 'w') + static_cast<char>(byte);
          ASSERT_NO_FATAL_FAILURE(ExpectTheTokensOfTheLiteralLexer(part + std::string(behind, 'x')));
        }
      }
    }
  }
}

}  // namespace
}  // namespace zekara
