#pragma once

#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Appends `plist` to `bytes` as one XML property list, format version 1.0, as the platform writes it.
//
// Returns null on success. Otherwise returns a constant that says why the value cannot be written, and leaves
// `bytes` as they were: the value holds nil, a key that is not a string, text that is not UTF-8 or contains a
// NUL, a date whose year has more than nine digits, or containers nested deeper than kMaximumPlistDepth.
// Raises std::bad_alloc only; what was appended until then stays.
const char* WritePlist(const Plist& plist, std::string& bytes);

}  // namespace zekara
