#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// An INI configuration file in memory: a tree of sections, keys and values, in the order in which they first
// appeared. docs/ini-format.md describes the text form.
//
//   const auto ini = ZKAIniParser::initWithData(bytes).parse();
//   ini->applyPatch(patch);
//   const std::string text = ini->asIni();
//
// A section is a modifiable dictionary. A value is a string, a number, a list of these, or any other value
// that a patch brought. The document shares its tree and its sections with the caller: a change to either
// changes the document. Comments and the formatting of the input are not kept.
//
// Errors: a nil section, key or value raises "NSInvalidArgumentException", and so does a section that is not
// a dictionary or not modifiable. A missing section may have been added by then. For use by one thread at a
// time.
class ZKAIniData {
 public:
  // Returns an empty document.
  static std::shared_ptr<ZKAIniData> init() { return std::shared_ptr<ZKAIniData>(new ZKAIniData); }

  // Adds a value. Stores the first value of a key as it is, replaces the second by a list of both, and
  // appends all further values to that list. Adds the section if it is missing.
  void addObject_forKey_inSection(Plist object, const Plist& key, const Plist& section);
  // Stores a value and replaces an earlier value or list. Adds the section if it is missing.
  void setObject_forKey_inSection(Plist object, const Plist& key, const Plist& section);

  // Returns the stored value; nil if the section or the key is missing. A list is the document's own, not a
  // copy.
  Plist objectForKey_inSection(const Plist& key, const Plist& section) const {
    return plist_.objectForKey(section).objectForKey(key);
  }
  // Returns the document's own dictionary of a section; nil if the section is missing.
  Plist section(const Plist& section) const { return plist_.objectForKey(section); }

  // Applies PlistPatch() to this document and returns its result: the names of the sections that changed.
  ZKAChangedSections applyPatch(const Plist& patch) { return PlistPatch(plist_, patch); }
  // Applies PlistSupplementDefaults() to this document. Deliberate: the suite spells the name so, and the
  // order of the arguments differs from the function's.
  void supplimentDefaults_forSection(const SectionDefault* defaults, const Plist& section) {
    PlistSupplementDefaults(plist_, section, defaults);
  }

  // Returns the document's own section tree.
  Plist asDictionary() const noexcept { return plist_; }

  // Returns the document as INI text in UTF-8. Raises "NSInvalidArgumentException" if a section is not a
  // dictionary or a value is nested too deeply.
  std::string asIni() const;

 private:
  ZKAIniData() = default;

  const Plist& sectionToChange(const Plist& name);

  Plist plist_ = Plist::dictionary();
  // The index in plist_ of the section that was changed last. Most changes go to the same section as the one
  // before, so this saves a search.
  std::size_t lastSection_ = 0;
};

}  // namespace zekara
