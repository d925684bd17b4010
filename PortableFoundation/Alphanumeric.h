#pragma once

#include <string_view>

namespace zekara {

// Whether the code point is in the platform's alphanumeric set: Unicode 15 general categories L, M and N.
bool IsAlphanumeric(char32_t codePoint) noexcept;

// Whether every character of the UTF-8 text is. True for the empty text, false for text that is not UTF-8.
bool IsAlphanumericText(std::string_view text) noexcept;

}  // namespace zekara
