#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zekara {

// The length of the UTF-8 sequence that `text` begins with. 0 when it begins with none that is well-formed:
// overlong forms, surrogates, values beyond U+10FFFF, cut sequences and empty text.
std::size_t Utf8SequenceLength(std::string_view text) noexcept;

// The offset of the first byte that cannot stand in a property list: a NUL, or a byte that begins no
// well-formed UTF-8 sequence. text.size() when there is none.
std::size_t FindUnfitByte(std::string_view text) noexcept;

// Appends one code point, which must be no surrogate and at most U+10FFFF.
void AppendUtf8(std::string& text, char32_t codePoint);

}  // namespace zekara
