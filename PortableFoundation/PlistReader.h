#pragma once

#include <cstddef>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Why a text is not a property list, and where.
struct PlistFault {
  const char* problem = nullptr;  // the beginning of a sentence, a constant; null if nothing is wrong
  std::size_t offset = 0;         // in bytes from the start of the text
};

// Parses one XML property list, format version 1.0, in one pass. `text` must be UTF-8 without a NUL; it is
// neither kept nor changed.
//
// Returns the value; all its containers are unmodifiable. Returns nil and describes the first error in
// `fault` if the text is not a property list; otherwise leaves `fault` alone. Containers may be nested
// kMaximumPlistDepth deep. Reads no document type definition and no entities but the five of XML. Time and
// memory are linear in the size of the text. Raises std::bad_alloc only.
Plist ReadPlist(std::string_view text, PlistFault& fault);

// Returns the encoding that an XML declaration at the very beginning of `text` names; an empty view if there
// is none. The view is a part of `text`.
std::string_view DeclaredPlistEncoding(std::string_view text);

}  // namespace zekara
