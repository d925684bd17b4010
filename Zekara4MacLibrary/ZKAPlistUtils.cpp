// The functions on trees walk two levels, sections and their keys, and look each key up in the other tree. A
// missing section or key is nil, for which every question has an answer, so few cases of absence need a
// branch. Kinds are not checked here: the operations of Plist raise if a section is not a dictionary or is
// unmodifiable.

#include "Zekara4MacLibrary/ZKAPlistUtils.h"

#include <cstdlib>

#include "PortableFoundation/NSException.h"

namespace zekara {
namespace {

// Returns the value of a row; nil if its type is unknown.
Plist DefaultValue(const SectionDefault& row) {
  const auto* text = static_cast<const char*>(row.value);
  switch (row.type) {
    case DefaultTypeString:
    case DefaultTypeBoolean:
      return text;
    case DefaultTypeNumber:
      return std::atoi(text);
    case DefaultTypeList: {
      Plist list = Plist::array();
      for (auto* entry = static_cast<const char* const*>(row.value); *entry != nullptr; ++entry) {
        list.addObject(*entry);
      }
      return list;
    }
    default:
      return {};
  }
}

// Calls change(key, value) for each boolean row of the table; the value is nil if the section lacks the key.
template <class Change>
void ForEachBoolean(const Plist& section, const SectionDefault* defaults, Change change) {
  if (section.isNil()) return;
  for (const SectionDefault* row = defaults; row->key != nullptr; ++row) {
    if (row->type != DefaultTypeBoolean) continue;
    const Plist key = row->key;
    change(key, section.objectForKey(key));
  }
}

// The translation of an unknown value is nil, which setObject_forKey() rejects.
void Translate(const Plist& section, const Plist& key, const Plist& translation) {
  const Plist value = section.objectForKey(key);
  if (!value.isNil()) section.setObject_forKey(translation.objectForKey(value), key);
}

}  // namespace

void SectionDefault::raiseOpenList() {
  throw NSException(NSInvalidArgumentException, "a list of defaults does not end with a null pointer");
}

// A row of an unknown type has nil as its default, which setObject_forKey() rejects.
void PlistSupplementDefaults(const Plist& tree, const Plist& section, const SectionDefault* defaults) {
  if (tree.objectForKey(section).isNil()) tree.setObject_forKey(Plist::dictionary(), section);
  const Plist target = tree.objectForKey(section);
  for (const SectionDefault* row = defaults; row->key != nullptr; ++row) {
    if (target.objectForKey(row->key).isNil()) target.setObject_forKey(DefaultValue(*row), row->key);
  }
}

Plist PlistDeepCopy(const Plist& tree) {
  Plist result = Plist::dictionaryWithCapacity(tree.count());
  for (const auto& [name, section] : tree.entries()) {
    const Plist copy = Plist::dictionary();
    result.setObject_forKey(copy, name);
    for (const auto& [key, value] : section.entries()) copy.setObject_forKey(value.copy(), key);
  }
  return result;
}

// Deliberate: a removal is not a difference, because a patch cannot express one.
Plist PlistDiff(const Plist& old, const Plist& new_) {
  Plist diff = Plist::dictionary();
  for (const auto& [name, section] : new_.entries()) {
    const Plist oldSection = old.objectForKey(name);
    if (oldSection.isNil()) {
      diff.setObject_forKey(section, name);
      continue;
    }
    const Plist sectionDiff = Plist::dictionary();
    for (const auto& [key, value] : section.entries()) {
      if (!(value == oldSection.objectForKey(key))) sectionDiff.setObject_forKey(value, key);
    }
    if (sectionDiff.count() > 0) diff.setObject_forKey(sectionDiff, name);
  }
  return diff;
}

// A section that the tree lacks enters it as a copy, so that later changes do not reach the patch. It counts
// as changed even if it is empty. An equal value does not count, so that a request which repeats the current
// settings notifies no daemon.
ZKAChangedSections PlistPatch(const Plist& tree, const Plist& patch) {
  ZKAChangedSections changed;
  for (const auto& [name, patchSection] : patch.entries()) {
    const Plist section = tree.objectForKey(name);
    if (section.isNil()) {
      tree.setObject_forKey(patchSection.mutableCopy(), name);
      changed.emplace(name.string());
      continue;
    }
    for (const auto& [key, value] : patchSection.entries()) {
      if (value == section.objectForKey(key)) continue;
      section.setObject_forKey(value, key);
      changed.emplace(name.string());
    }
  }
  return changed;
}

void SectionBooleansToNumbers(const Plist& section, const SectionDefault* defaults) {
  ForEachBoolean(section, defaults, [&](const Plist& key, const Plist& value) {
    if (value.isString()) section.setObject_forKey(value.isEqualToString("Yes"), key);
  });
}

void SectionBooleansToStrings(const Plist& section, const SectionDefault* defaults) {
  ForEachBoolean(section, defaults, [&](const Plist& key, const Plist& value) {
    if (value.isNumber()) section.setObject_forKey(value.boolValue() ? "Yes" : "No", key);
  });
}

void SectionTranslate(const Plist& section, const Plist& keys, const Plist& translation) {
  if (section.isNil()) return;
  for (const Plist& key : keys.elements()) Translate(section, key, translation);
}

void SectionTranslate(const Plist& section, const std::set<std::string, std::less<>>& keys,
                      const Plist& translation) {
  for (const std::string& key : keys) Translate(section, key, translation);
}

}  // namespace zekara
