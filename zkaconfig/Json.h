#pragma once

#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// The value as JSON (RFC 8259) in UTF-8, two blanks a level, without a line end behind it. A date becomes a
// string like "2009-02-13T23:31:30Z", data Base64, a real that is no finite number and nil null; bytes that
// are no UTF-8 become U+FFFD. Keys keep their order.
std::string JsonText(const Plist& value);

}  // namespace zekara
