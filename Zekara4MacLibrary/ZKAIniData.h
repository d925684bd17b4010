#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// An INI configuration file in memory: sections of keys and values, in the order in which they first
// appeared.
//
// A section is a modifiable dictionary; a value is a string, a number, a list of these, or whatever a patch
// brought. Sections and the tree itself are shared with the caller: changing them changes the document. Not
// for use by several threads at once.
class ZKAIniData {
 public:
  // The empty document.
  static std::shared_ptr<ZKAIniData> init() { return std::shared_ptr<ZKAIniData>(new ZKAIniData); }

  // Adds a value: the first one under a key is stored as it is, the second one makes a list of both, later
  // ones are appended. The section is made when it is missing. A nil section, key or value raises
  // "NSInvalidArgumentException"; the section may have been made by then.
  void addObject_forKey_inSection(Plist object, const Plist& key, const Plist& section);
  // Stores a value, replacing an earlier value or list; otherwise the same.
  void setObject_forKey_inSection(Plist object, const Plist& key, const Plist& section);

  // Returns the stored value itself, not a copy of a list; nil if the section or the key is missing.
  Plist objectForKey_inSection(const Plist& key, const Plist& section) const {
    return plist_.objectForKey(section).objectForKey(key);
  }
  // The section's live dictionary; nil when missing.
  Plist section(const Plist& section) const { return plist_.objectForKey(section); }

  // PlistPatch() on this document.
  ZKAChangedSections applyPatch(const Plist& patch) { return PlistPatch(plist_, patch); }
  // PlistSupplementDefaults() on this document. The name is spelt so throughout the suite.
  void supplimentDefaults_forSection(const SectionDefault* defaults, const Plist& section) {
    PlistSupplementDefaults(plist_, section, defaults);
  }

  // The live section tree.
  Plist asDictionary() const noexcept { return plist_; }

  // The document as INI text in UTF-8, as docs/ini-format.md lays it down. Raises
  // "NSInvalidArgumentException" when a section is no dictionary, or a value is nested too deeply for a text.
  std::string asIni() const;

 private:
  ZKAIniData() = default;

  const Plist& sectionToChange(const Plist& name);

  Plist plist_ = Plist::dictionary();
  // The entry of the section that was changed last. Most changes are to the same section as the one before.
  std::size_t lastSection_ = 0;
};

}  // namespace zekara
