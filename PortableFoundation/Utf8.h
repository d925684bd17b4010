#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zekara {

// Returns the length, 1 to 4, of the well-formed UTF-8 sequence at the beginning of `text`. Returns 0 if
// there is none: for an empty text, overlong forms, surrogates, values beyond U+10FFFF and truncated
// sequences.
std::size_t Utf8SequenceLength(std::string_view text) noexcept;

// Returns the offset of the first byte that a property list must not contain: a NUL, or a byte that does not
// begin a well-formed UTF-8 sequence. Returns text.size() if there is none.
std::size_t FindUnfitByte(std::string_view text) noexcept;

// Appends the UTF-8 form of a code point of at most U+10FFFF that is not a surrogate.
void AppendUtf8(std::string& text, char32_t codePoint);

}  // namespace zekara
