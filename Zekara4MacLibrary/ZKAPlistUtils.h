#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// What kind of value a row of a defaults table holds. The numbers are part of the interface.
enum DefaultType : std::uint32_t {
  DefaultTypeString = 0,  // text, stored as a string
  DefaultTypeNumber = 1,  // decimal text, stored as the 32-bit integer that atoi() makes of it
  DefaultTypeBoolean =
      2,  // "Yes" or "No". Deliberate: stored as that string; SectionBooleansToNumbers() converts it
  DefaultTypeList = 3,  // texts, stored as an array of strings
};

// One row of a section-defaults table. A table is constant and ends with a row whose `key` is null.
struct SectionDefault {
  const char* key;     // ASCII, NUL-terminated
  std::uint32_t type;  // a DefaultType
  const void* value;  // codes 0 to 2: const char*, UTF-8; code 3: const char* const*, ended by a null pointer
};

// The names of the sections that a patch altered.
using ZKAChangedSections = std::set<std::string, std::less<>>;

// The functions below work on section trees: a dictionary of sections, each a dictionary of values. Values
// are compared, shared and replaced whole, never looked into. An entry that should be a section and is no
// dictionary raises "NSInvalidArgumentException" once its keys are needed, as does a change to what cannot be
// changed; nothing is rolled back. Not for use by several threads on one tree.

// Fills the keys that the section lacks from the table, and makes the section when `tree` lacks it. Values
// that are there stay, whatever they are. A row with an unknown type raises "NSInvalidArgumentException".
void PlistSupplementDefaults(const Plist& tree, const Plist& section, const SectionDefault* defaults);

// A new tree: dictionaries and sections are new and modifiable, values are unmodifiable copies.
Plist PlistDeepCopy(const Plist& tree);

// What must be set in `old` to make it agree with everything that `new_` holds: a new tree which shares
// values, and sections that `old` lacks, with `new_`. What only `old` has leaves no trace.
Plist PlistDiff(const Plist& old, const Plist& new_);

// Adds the keys and values of `patch` to `tree`; returns the names of the sections that were added or in
// which a value changed. Values are shared with `patch`, sections are not. A nil patch changes nothing.
ZKAChangedSections PlistPatch(const Plist& tree, const Plist& patch);

// The two below convert the values of one section, in place, whose keys the table types DefaultTypeBoolean. A
// nil section is left alone.

// Strings become booleans: "Yes", exactly, is true, every other string false. Other values stay.
void SectionBooleansToNumbers(const Plist& section, const SectionDefault* defaults);
// Numbers and booleans become "Yes" (not zero) or "No". Other values stay.
void SectionBooleansToStrings(const Plist& section, const SectionDefault* defaults);

// Replaces the section's value under each of `keys` (an array) by what the dictionary `translation` holds
// under that value. Keys that the section lacks are passed over; a value without a translation raises
// "NSInvalidArgumentException", and the keys before it stay translated. Does nothing when `section` or `keys`
// is nil.
void SectionTranslate(const Plist& section, const Plist& keys, const Plist& translation);

}  // namespace zekara
