#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Returns `text` with every byte of a control character, of a mark that reorders text for display, and of
// malformed UTF-8 as \xNN. Any user can have the configuration file changed, so control characters must not
// reach a terminal. Line ends and tabs stay if `isBlock` is true.
std::string Printable(std::string_view text, bool isBlock = false);

// Returns a report for people with terminal colours: headers in bold, defaults dimmed.
std::string HighlightedSettings(std::string_view report);
// The same for a difference: headers in bold, old values in red, new ones in green.
std::string HighlightedDifference(std::string_view report);

// "the number 42", "the text \"on\"", "a list": names a value in a message.
std::string Described(const Plist& value);

// Returns "KEY = VALUE" as the configuration file would hold it, without a line end.
std::string SettingLine(const Plist& key, const Plist& value);

// Returns the number of the line that contains the offset. The first line is 1.
std::size_t LineAt(std::string_view text, std::size_t offset);

// Returns the offset of the first byte at which the configuration file's readers stop: NUL, or a byte that is
// not 7-bit ASCII. Returns npos if there is none.
std::size_t FindForeignByte(std::string_view text);

}  // namespace zekara
