#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// XML property lists, format version 1.0, as the platform's serialiser writes and reads them.
class NSPropertyListSerialization {
 public:
  // Parses one XML property list. Returns the value, whose containers are all unmodifiable; on bad input
  // returns nil and puts a sentence that tells the line and what is wrong there into `error`, which is
  // otherwise left alone.
  //
  // Bytes are UTF-8 (strictly; a byte order mark, and a declaration of US-ASCII or ISO-8859-1, are honoured);
  // white space may stand before the declaration. No document type definition is read and no entity but the
  // five of XML is known; containers may stand kMaximumPlistDepth deep. The text is neither kept nor changed.
  // Time and memory grow linearly with it.
  static Plist propertyListFromData(std::string_view bytes, std::string& error);

  // Appends `plist` to `bytes` as the platform writes it: UTF-8, keys sorted by their UTF-16 code units, one
  // TAB per depth, a line end after the last tag. Returns true. Where a value cannot be written (nil, a key
  // that is no string, text that is not UTF-8 or holds a NUL, a date whose year has more than nine digits,
  // containers too deep or inside themselves), returns false with a sentence in `error` and leaves `bytes` as
  // they were.
  //
  // Every value that was written reads back equal through any conforming reader: minus zero is written "-0.0"
  // and a carriage return "&#13;", where the platform's own writer would lose them.
  static bool appendDataFromPropertyList(const Plist& plist, std::string& bytes, std::string& error);
};

}  // namespace zekara
