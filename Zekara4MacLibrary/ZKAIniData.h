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

  // The stored value itself; nil when the section or the key is missing. The reference lives until its
  // section changes.
  const Plist& objectForKey_inSection(const Plist& key, const Plist& section) const;
  // The section's live dictionary; nil when missing.
  Plist section(const Plist& section) const { return plist_.objectForKey(section); }

  // PlistPatch() on this document.
  ZKAChangedSections applyPatch(const Plist& patch) { return PlistPatch(plist_, patch); }
  // PlistSupplementDefaults() on this document. The name is spelt so throughout the suite.
  void supplimentDefaults_forSection(const SectionDefault* defaults, const Plist& section) {
    PlistSupplementDefaults(plist_, section, defaults);
  }

  // The live section tree.
  const Plist& asDictionary() const noexcept { return plist_; }

  // The document as INI text in UTF-8, as docs/ini-format.md lays it down. Raises
  // "NSInvalidArgumentException" when a section is no dictionary, or a value is nested too deeply for a text.
  std::string asIni() const;
  // The same, appended to `text`; what was appended before a failure stays.
  void appendIniTo(std::string& text) const;
  // How many bytes that text has. Raises as asIni() does.
  std::size_t sizeAsIni() const;

 private:
  friend class ZKAIniParser;  // looks each section up once, not for each value

  ZKAIniData() = default;

  const Plist& madeSection(const Plist& name, std::size_t capacity = 0);
  static void addObject_forKey_toSection(Plist object, const Plist& key, const Plist& section);

  Plist plist_ = Plist::dictionary();
};

}  // namespace zekara
