#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zekara {

// A point in time as its parts: UTC, proleptic Gregorian calendar, astronomical year numbers (0 is 1 BC).
struct PlistDate {
  std::int64_t year;
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;
  int minute;
  int second;

  // Seconds are counted since 1970-01-01T00:00:00Z; every value has its date.
  static PlistDate fromSeconds(std::int64_t seconds) noexcept;
  // The inverse, for parts in range and years of at most nine digits.
  std::int64_t toSeconds() const noexcept;
  // Whether the parts name a day and a time that exist; there are no leap seconds.
  bool isValid() const noexcept;
  // Appends YYYY-MM-DD, `separator`, HH:MM:SS and `suffix`. The year takes four places, its sign included, or
  // more.
  void appendTo(std::string& text, char separator, std::string_view suffix) const;
};

}  // namespace zekara
