#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Reads and writes XML property lists, format version 1.0, as the platform's serialiser does.
//
//   std::string error;
//   const Plist message = NSPropertyListSerialization::propertyListFromData(bytes, error);
//   if (message.isNil()) NSLog("%s", error.c_str());
class NSPropertyListSerialization {
 public:
  // Parses one XML property list. `bytes` are neither kept nor changed.
  //
  // Returns the value; all its containers are unmodifiable. Returns nil if `bytes` are not a property list,
  // and puts a sentence into `error` that says what is wrong on which line; otherwise leaves `error` alone.
  //
  // Bytes must be UTF-8, with or without a byte order mark. A declaration at the very beginning may name
  // US-ASCII or ISO-8859-1 instead. White space may precede the declaration. No document type definition is
  // read, and no entities but the five of XML are known. Containers may be nested kMaximumPlistDepth deep.
  // Time and memory are linear in the size. Raises std::bad_alloc only.
  static Plist propertyListFromData(std::string_view bytes, std::string& error);

  // Appends `plist` to `bytes` in the platform's form: UTF-8, keys sorted by their UTF-16 code units, one TAB
  // for each level of nesting, and a line end after the last tag.
  //
  // Returns true on success. Otherwise returns false, puts a sentence into `error` and leaves `bytes` as they
  // were: the value holds nil, a key that is not a string, text that is not UTF-8 or contains a NUL, a date
  // whose year has more than nine digits, or containers that are nested too deeply or contain themselves.
  //
  // Every conforming reader reads back an equal value: minus zero is written as "-0.0" and a carriage return
  // as "&#13;", which the platform's own writer would lose.
  static bool appendDataFromPropertyList(const Plist& plist, std::string& bytes, std::string& error);
};

}  // namespace zekara
