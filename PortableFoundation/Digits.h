#pragma once

#include <string>
#include <string_view>

namespace zekara {

// Digits in ASCII, for every file that reads or writes them. The functions of <cctype> do not do: they depend
// on the locale and are undefined for negative characters. Any thread may call these, and none of them keeps
// what it is given.
//
//   while (!text.empty() && IsDigit(text.front())) text.remove_prefix(1);

// Returns true for the ASCII digits 0 to 9. Returns false for every other byte; in UTF-8 the digits of other
// scripts consist of bytes from 0x80 up, so they do not count.
constexpr bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Appends the two hexadecimal digits of a byte to `text`, in small letters and without a prefix: a line feed
// becomes "0a". Raises std::bad_alloc only; `text` then ends as before, or with the first digit.
inline void AppendHexadecimal(std::string& text, char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  text += kDigits[value >> 4];
  text += kDigits[value & 0xF];
}

}  // namespace zekara
