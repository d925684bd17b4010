#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Returns `text` with every byte of a control character, of a mark that reorders text for display, and of
// malformed UTF-8 as \xNN. Any user can have the configuration file changed, so control characters must not
// reach a terminal. Line ends and tabs stay if `isBlock` is true.
std::string Printable(std::string_view text, bool isBlock = false);

// "the number 42", "the text \"on\"", "a list": a value in a message.
std::string Described(const Plist& value);

// "KEY = VALUE", as the value stands in the configuration file, without a line end.
std::string SettingLine(const Plist& key, const Plist& value);

// The number of the line in which the offset lies; the first is 1.
std::size_t LineAt(std::string_view text, std::size_t offset);

// Where the first byte stands that the configuration file's reader does not understand: NUL, or beyond 7-bit
// ASCII; npos when there is none.
std::size_t FindForeignByte(std::string_view text);

}  // namespace zekara
