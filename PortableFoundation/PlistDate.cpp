// Calendar arithmetic on days, in eras of 400 years after which the calendar repeats. A year begins on 1
// March here, so that the leap day is its last day and the lengths of the months follow one formula. Day 0 is
// 0000-03-01, which is 719468 days before 1970-01-01.
//
// The standard library's calendar does not do: its years end at 32767, and property lists have nine digits.

#include "PortableFoundation/PlistDate.h"

#include <cinttypes>
#include <cstdio>

namespace zekara {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kDaysPerEra = 146097;

constexpr std::int64_t FloorDivide(std::int64_t value, std::int64_t divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

bool IsLeapYear(std::int64_t year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int DaysInMonth(std::int64_t year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

PlistDate PlistDate::fromSeconds(std::int64_t seconds) noexcept {
  const std::int64_t days = FloorDivide(seconds, kSecondsPerDay);
  const std::int64_t remainder = seconds % kSecondsPerDay;
  const auto timeOfDay = static_cast<int>(remainder < 0 ? remainder + kSecondsPerDay : remainder);
  const std::int64_t marchDays = days + 719468;
  const std::int64_t era = FloorDivide(marchDays, kDaysPerEra);
  const std::int64_t dayOfEra = marchDays - era * kDaysPerEra;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const auto dayOfYear = static_cast<int>(dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100));
  const int marchMonth = (5 * dayOfYear + 2) / 153;
  const int month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
  return {.year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0),
          .month = month,
          .day = dayOfYear - (153 * marchMonth + 2) / 5 + 1,
          .hour = timeOfDay / 3600,
          .minute = timeOfDay / 60 % 60,
          .second = timeOfDay % 60};
}

// March to July have 153 days, and so have August to December: the months before month m of a year that
// begins in March, counted from 0, have (153 m + 2) / 5 days.
std::int64_t PlistDate::toSeconds() const noexcept {
  const std::int64_t marchYear = month <= 2 ? year - 1 : year;
  const std::int64_t era = FloorDivide(marchYear, 400);
  const std::int64_t yearOfEra = marchYear - era * 400;
  const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  const std::int64_t days = era * kDaysPerEra + dayOfEra - 719468;
  return days * kSecondsPerDay + std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second;
}

bool PlistDate::isValid() const noexcept {
  return month >= 1 && month <= 12 && day >= 1 && day <= DaysInMonth(year, month) && hour >= 0 &&
         hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
}

void PlistDate::appendTo(std::string& text, char separator, std::string_view suffix) const {
  char formatted[64];
  const int length = std::snprintf(formatted, sizeof formatted, "%04" PRId64 "-%02d-%02d%c%02d:%02d:%02d",
                                   year, month, day, separator, hour, minute, second);
  text.append(formatted, static_cast<std::size_t>(length));
  text += suffix;
}

}  // namespace zekara
