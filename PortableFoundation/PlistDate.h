#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zekara {

// A point in time as calendar fields: UTC, proleptic Gregorian calendar, astronomical year numbers (year 0
// is 1 BC). Leap seconds do not exist, and neither do fractions of a second. Property lists and the text form
// of dates are made from these fields:
//
//   std::string text;
//   PlistDate::fromSeconds(0).appendTo(text, 'T', "Z");  // 1970-01-01T00:00:00Z
struct PlistDate {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;   // 0 to 23
  int minute;
  int second;

  // Converts seconds since 1970-01-01T00:00:00Z. Every value has a date.
  static PlistDate fromSeconds(std::int64_t seconds) noexcept;
  // Returns the seconds since 1970-01-01T00:00:00Z. The fields must be valid, and the year must have at most
  // nine digits.
  std::int64_t toSeconds() const noexcept;
  // Returns true if the fields name a day and a time that exist.
  bool isValid() const noexcept;
  // Appends YYYY-MM-DD, `separator`, HH:MM:SS and `suffix` to `text`. The year has at least four characters,
  // its sign included: "0009", "-009". The fields must be valid.
  void appendTo(std::string& text, char separator, std::string_view suffix) const;
};

}  // namespace zekara
