#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "PortableFoundation/PlistDate.h"

namespace zekara {
namespace {

std::string Text(std::int64_t seconds) {
  std::string text;
  PlistDate::fromSeconds(seconds).appendTo(text, 'T', "Z");
  return text;
}

TEST(PlistDate, SecondsAndPartsStandForTheSamePointInTime) {
  struct Row {
    std::int64_t seconds;
    const char* text;
  };
  const Row rows[] = {
      {0, "1970-01-01T00:00:00Z"},
      {-1, "1969-12-31T23:59:59Z"},
      {1234567890, "2009-02-13T23:31:30Z"},
      {951782400, "2000-02-29T00:00:00Z"},
      {951868799, "2000-02-29T23:59:59Z"},
      {951868800, "2000-03-01T00:00:00Z"},
      {-2203891201, "1900-02-28T23:59:59Z"},
      {-2203891200, "1900-03-01T00:00:00Z"},
      {2147483648, "2038-01-19T03:14:08Z"},
      {253402300799, "9999-12-31T23:59:59Z"},
      {253402300800, "10000-01-01T00:00:00Z"},
      {-62167219200, "0000-01-01T00:00:00Z"},
      {-62167219201, "-001-12-31T23:59:59Z"},
      {-62162121600, "0000-02-29T00:00:00Z"},
      {-63549360000, "-044-03-15T00:00:00Z"},
  };
  for (const auto& [seconds, text] : rows) {
    EXPECT_EQ(Text(seconds), text);
    EXPECT_EQ(PlistDate::fromSeconds(seconds).toSeconds(), seconds) << text;
    EXPECT_TRUE(PlistDate::fromSeconds(seconds).isValid()) << text;
  }
}

TEST(PlistDate, EveryDayOfEightHundredYearsFollowsTheDayBefore) {
  PlistDate before = PlistDate::fromSeconds(-86400);
  for (std::int64_t day = 0; day < 800 * 365; ++day) {
    const PlistDate date = PlistDate::fromSeconds(day * 86400);
    ASSERT_TRUE(date.isValid());
    ASSERT_EQ(date.toSeconds(), day * 86400);
    if (date.day != 1) {
      ASSERT_TRUE(date.day == before.day + 1 && date.month == before.month && date.year == before.year);
    } else if (date.month != 1) {
      ASSERT_TRUE(date.month == before.month + 1 && date.year == before.year);
    } else {
      ASSERT_TRUE(date.year == before.year + 1 && before.month == 12 && before.day == 31);
    }
    before = date;
  }
}

TEST(PlistDate, FirstAndLastRepresentableSecondsHaveTheirDates) {
  EXPECT_EQ(Text(std::numeric_limits<std::int64_t>::max()), "292277026596-12-04T15:30:07Z");
  EXPECT_EQ(Text(std::numeric_limits<std::int64_t>::min()), "-292277022657-01-27T08:29:52Z");
}

TEST(PlistDate, PartsOutOfRangeAreNotValid) {
  const PlistDate good = {2023, 6, 30, 12, 30, 30};
  ASSERT_TRUE(good.isValid());
  const auto with = [&](int PlistDate::*part, int value) {
    PlistDate date = good;
    date.*part = value;
    return date;
  };
  EXPECT_FALSE(with(&PlistDate::month, 0).isValid());
  EXPECT_FALSE(with(&PlistDate::month, 13).isValid());
  EXPECT_FALSE(with(&PlistDate::month, 2).isValid());
  EXPECT_FALSE(with(&PlistDate::day, 0).isValid());
  EXPECT_FALSE(with(&PlistDate::day, 31).isValid());
  EXPECT_FALSE(with(&PlistDate::hour, 24).isValid());
  EXPECT_FALSE(with(&PlistDate::hour, -1).isValid());
  EXPECT_FALSE(with(&PlistDate::minute, 60).isValid());
  EXPECT_FALSE(with(&PlistDate::minute, -1).isValid());
  EXPECT_FALSE(with(&PlistDate::second, 60).isValid());
  EXPECT_FALSE(with(&PlistDate::second, -1).isValid());
}

TEST(PlistDate, TwentyNinthOfFebruaryExistsInLeapYearsOnly) {
  for (const std::int64_t year : {4, 2000, 2024, 0, -4, -400})
    EXPECT_TRUE((PlistDate{year, 2, 29, 0, 0, 0}.isValid())) << year;
  for (const std::int64_t year : {1, 1900, 2023, 2100, -1, -100})
    EXPECT_FALSE((PlistDate{year, 2, 29, 0, 0, 0}.isValid())) << year;
}

}  // namespace
}  // namespace zekara
