#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// The type of a row in a section-defaults table. The numbers are part of the interface.
enum DefaultType : std::uint32_t {
  DefaultTypeString = 0,  // text, stored as a string
  DefaultTypeNumber = 1,  // decimal text, stored as the 32-bit integer that atoi() makes of it
  // "Yes" or "No". Deliberate: stored as that string; SectionBooleansToNumbers() converts it.
  DefaultTypeBoolean = 2,
  DefaultTypeList = 3,  // texts, stored as an array of strings
};

// One row of a section-defaults table. Tables are constant arrays and end with a row whose `key` is null:
//
//   constexpr const char* kPaths[] = {"/dev", "/Network", nullptr};
//   constexpr SectionDefault kDefaults[] = {
//       SectionDefault::number("Interval", "43200"), SectionDefault::list("Paths", kPaths), {}};
//
// Rows are made by the functions below only, so that a value always fits its type. All texts are constants.
struct SectionDefault {
  const char* key = nullptr;  // ASCII
  std::uint32_t type = 0;     // a DefaultType
  // Codes 0 to 2: const char*, UTF-8. Code 3: const char* const*, null at its end.
  const void* value = nullptr;

  // The row that ends a table.
  constexpr SectionDefault() noexcept = default;
  static constexpr SectionDefault string(const char* key, const char* text) noexcept {
    return {key, DefaultTypeString, text};
  }
  static constexpr SectionDefault number(const char* key, const char* decimalText) noexcept {
    return {key, DefaultTypeNumber, decimalText};
  }
  static constexpr SectionDefault boolean(const char* key, bool isYes) noexcept {
    return {key, DefaultTypeBoolean, isYes ? "Yes" : "No"};
  }
  // The last element of `texts` must be null: otherwise a constant table does not compile, and any other
  // raises "NSInvalidArgumentException".
  template <std::size_t count>
  static constexpr SectionDefault list(const char* key, const char* const (&texts)[count]) {
    if (texts[count - 1] != nullptr) raiseOpenList();
    return {key, DefaultTypeList, texts};
  }

 private:
  constexpr SectionDefault(const char* keyOfRow, DefaultType typeOfRow, const void* valueOfRow) noexcept
      : key(keyOfRow), type(typeOfRow), value(valueOfRow) {}
  [[noreturn]] static void raiseOpenList();
};

// The names of the sections that a patch altered.
using ZKAChangedSections = std::set<std::string, std::less<>>;

// The functions below work on section trees: a dictionary of sections, each of which is a dictionary of
// values. They compare, share and replace values as a whole and never look into them.
//
// Errors: all of them raise "NSInvalidArgumentException" when they need the keys of a section that is not a
// dictionary, and when they change something unmodifiable. Changes that were made before stay. Not for use by
// several threads on one tree.

// Adds every key of the table that the section lacks, with its default. Adds the section first if `tree`
// lacks it. Leaves existing values alone, of any kind. A row with an unknown type raises
// "NSInvalidArgumentException".
void PlistSupplementDefaults(const Plist& tree, const Plist& section, const SectionDefault* defaults);

// Returns a copy of a tree. Its dictionary and its sections are new and modifiable; its values are
// unmodifiable copies.
Plist PlistDeepCopy(const Plist& tree);

// Returns the tree that makes `old` agree with everything in `new_` when it is applied as a patch. Its
// dictionaries are new. It shares values with `new_`, and sections that `old` lacks as a whole. Keys and
// sections that only `old` has leave no trace in it.
Plist PlistDiff(const Plist& old, const Plist& new_);

// Stores the keys and values of `patch` in `tree`. Returns the names of the sections that were added or in
// which a value changed. Shares values with `patch`, but not sections. A nil patch changes nothing.
ZKAChangedSections PlistPatch(const Plist& tree, const Plist& patch);

// The two functions below convert, in place, the values of one section under the keys that the table types as
// DefaultTypeBoolean. They do nothing if the section is nil.

// Converts strings to booleans: "Yes" exactly becomes true, every other string false. Other values stay.
void SectionBooleansToNumbers(const Plist& section, const SectionDefault* defaults);
// Converts numbers and booleans to "Yes" if they are not zero, and to "No" otherwise. Other values stay.
void SectionBooleansToStrings(const Plist& section, const SectionDefault* defaults);

// Replaces the section's value under each of `keys`, an array or a set of names, by what the dictionary
// `translation` holds under that value. Visits the keys in their order and skips those that the section
// lacks. A value without a translation raises "NSInvalidArgumentException"; keys that were visited before
// stay translated. Does nothing if `section` or the array `keys` is nil.
void SectionTranslate(const Plist& section, const Plist& keys, const Plist& translation);
void SectionTranslate(const Plist& section, const std::set<std::string, std::less<>>& keys,
                      const Plist& translation);

}  // namespace zekara
