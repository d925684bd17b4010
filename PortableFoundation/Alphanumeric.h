#pragma once

#include <string_view>

namespace zekara {

// Returns true if the platform's alphanumeric character set contains the code point: all letters, marks and
// numbers (general categories L, M and N) of Unicode 15.0. AlphanumericRanges.h holds the set.
bool IsAlphanumeric(char32_t codePoint) noexcept;

// Returns true if every character of a UTF-8 text is alphanumeric. Returns true for the empty text, and false
// for a text that is not UTF-8.
bool IsAlphanumericText(std::string_view text) noexcept;

}  // namespace zekara
