#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Converts between the scalars of property lists and their texts, which are between a start tag and an end
// tag of the XML form.

// Returns true for blank, TAB, LF and CR, the white space of property lists.
constexpr bool IsPlistSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Returns the part of `text` that remains without white space at its ends.
std::string_view TrimPlistSpace(std::string_view text) noexcept;

// Returns true if `text` equals `word`, ignoring the case of ASCII letters. `word` must be in small letters.
bool IsPlistWord(std::string_view text, std::string_view word) noexcept;

// Each of the three functions below returns the value of `text`, or nil if `text` as a whole does not have
// the form. White space counts as a foreign character, so the caller trims the text first.

// An optional sign and decimal digits, or hexadecimal digits after "0x". The value is -2^63 to 2^64-1.
Plist ParsePlistInteger(std::string_view text) noexcept;

// A decimal number as C writes it, or "nan", "inf" and "infinity" in any letter case; all but "nan" may have
// a sign. A number beyond the range of double becomes infinity or zero. Returns nil as well if memory runs
// out, which can happen on macOS only.
Plist ParsePlistReal(std::string_view text) noexcept;

// YYYY-MM-DDThh:mm:ssZ, for a day and a time that exist. The year has one to nine digits and may be negative.
Plist ParsePlistDate(std::string_view text) noexcept;

// Appends the text of a real number: 17 significant digits, as "%.17g" formats them, or "0.0", "-0.0", "nan",
// "+infinity" or "-infinity".
void AppendPlistReal(std::string& text, double real);

}  // namespace zekara
