#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

#include "PortableFoundation/IntValue.h"

namespace zekara::test {
namespace {

using namespace std::literals;

struct Case {
  const char* name;
  std::string_view text;
  std::int32_t value;
};

class IntValueTable : public testing::TestWithParam<Case> {};

TEST_P(IntValueTable, TextGivesItsNumber) {
  EXPECT_EQ(IntValue(GetParam().text), GetParam().value);
}

TEST_P(IntValueTable, PiecesGiveTheSameNumber) {
  const std::string_view text = GetParam().text;
  for (std::size_t size = 1; size <= text.size(); ++size) {
    IntValueScanner scanner;
    for (std::size_t at = 0; at < text.size(); at += size) scanner.scan(text.substr(at, size));
    EXPECT_EQ(scanner.value(), GetParam().value) << "in pieces of " << size;
  }
}

constexpr auto kMax = std::numeric_limits<std::int32_t>::max();
constexpr auto kMin = std::numeric_limits<std::int32_t>::min();

INSTANTIATE_TEST_SUITE_P(
    Texts, IntValueTable,
    testing::Values(Case{"Empty", "", 0}, Case{"Digits", "123", 123}, Case{"LineFeedAfter", "123\n", 123},
                    Case{"BlanksBefore", "  123\n", 123}, Case{"LettersAfter", "123abc", 123},
                    Case{"MoreTextAfter", "123 456", 123}, Case{"LettersBefore", "a123", 0},
                    Case{"Zero", "0", 0}, Case{"LeadingZeros", "000123", 123}, Case{"NoOctal", "0777", 777},
                    Case{"NoHexadecimal", "0x10", 0}, Case{"Negative", "-1", -1}, Case{"Plus", "+7", 7},
                    Case{"TwoSigns", "--7", 0}, Case{"PlusThenMinus", "+-7", 0}, Case{"SignAlone", "-", 0},
                    Case{"BlankAfterSign", "- 7", -7}, Case{"LineEndsBeforeSign", "\r\n\t\v\f -7", -7},
                    Case{"NulIsBlank",
                         "\0\0"
                         "12"sv,
                         12},
                    Case{"DeleteIsBlank",
                         "\x7F"
                         "12",
                         12},
                    Case{"BlankInsideEnds", "1 2", 1}, Case{"SignInsideEnds", "1-2", 1},
                    Case{"FractionEnds", "1.9", 1}, Case{"BlanksAlone", " \n ", 0},
                    Case{"HighByteEnds",
                         "\xC2\xA0"
                         "12",
                         0},
                    Case{"HighByteAfter", "12\xFF", 12}, Case{"Largest", "2147483647", kMax},
                    Case{"OneBeyondLargest", "2147483648", kMax}, Case{"Smallest", "-2147483648", kMin},
                    Case{"OneBeyondSmallest", "-2147483649", kMin}, Case{"TwoToThe32", "4294967296", kMax},
                    Case{"TwoToThe32AndOne", "4294967297", kMax},
                    Case{"TwoToThe64", "18446744073709551616", kMax},
                    Case{"TwoToThe64AndOne", "18446744073709551617", kMax},
                    Case{"NegativeTwoToThe64AndOne", "-18446744073709551617", kMin}),
    [](const auto& test) { return test.param.name; });

TEST(IntValue, MillionsOfDigitsAreClamped) {
  const std::string digits(3'000'000, '9');
  EXPECT_EQ(IntValue(digits), kMax);
  EXPECT_EQ(IntValue("-" + digits), kMin);
  EXPECT_EQ(IntValue(std::string(3'000'000, '0') + "5"), 5);
  EXPECT_EQ(IntValue(std::string(3'000'000, ' ') + "-5"), -5);
}

TEST(IntValue, EveryNumberIsTakenAsItIsWritten) {
  std::mt19937 random(20261121);
  std::uniform_int_distribution<std::int32_t> any(kMin, kMax);
  for (int i = 0; i < 100'000; ++i) {
    const std::int32_t number = any(random) >> (i % 31);
    EXPECT_EQ(IntValue(std::to_string(number)), number);
  }
}

}  // namespace
}  // namespace zekara::test
