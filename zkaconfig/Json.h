#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Returns `value` as JSON (RFC 8259), indented by two blanks a level, without a final line end. The text is
// ASCII: other characters are written as \uXXXX, so that no character of the value can steer a terminal. A
// date becomes a string such as "2009-02-13T23:31:30Z", and data becomes Base64. Nil, and a real that is
// infinite or not a number, become null. Bytes that are not UTF-8 become U+FFFD. Keys keep their order.
std::string JsonText(const Plist& value);

// Parses JSON in UTF-8. Keys keep their order, and the last of equal keys counts. `name` is what messages
// call the text. Raises Failure (Unreadable) with line and column of a syntax error, for null, which no
// setting can be, and for text that is nested more than kMaximumPlistDepth levels deep.
Plist PlistFromJson(std::string_view text, const std::string& name);

}  // namespace zekara
