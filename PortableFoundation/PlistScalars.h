#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// The text that stands between the tags of a property list's scalars.

// Blank, TAB, LF and CR are the white space of property lists.
constexpr bool IsPlistSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
std::string_view TrimPlistSpace(std::string_view text) noexcept;
// Whether `text` is `word`, which is in small letters, in any letter case.
bool IsPlistWord(std::string_view text, std::string_view word) noexcept;

// Each returns the value that `text` stands for, nil when it stands for none. The text is taken whole: white
// space around it is the caller's to remove.

// A sign or none, then decimal digits, or hexadecimal ones after "0x". From -2^63 to 2^64-1.
Plist ParsePlistInteger(std::string_view text) noexcept;
// A decimal number as in C, or "nan", "inf", "infinity" in any letter case, these two with a sign or none.
// What is beyond a double's range is infinity, or zero.
Plist ParsePlistReal(std::string_view text) noexcept;
// YYYY-MM-DDThh:mm:ssZ, of a day and time that exist. The year has one to nine digits and may be negative.
Plist ParsePlistDate(std::string_view text) noexcept;

// 17 significant digits, as "%.17g" gives; "0.0", "-0.0", "nan", "+infinity", "-infinity".
void AppendPlistReal(std::string& text, double real);

}  // namespace zekara
