#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/KnownSections.h"

namespace zekara {

// Returns the code of an action word, such as 2 for "Cure", and any other value itself.
Plist ActionCode(const Plist& value);

// The settings in force: what the configuration file holds, and the suite's defaults for what it lacks.
//
//   Settings settings(file, known, true);
//   settings.spellBooleans();
//   const Plist value = settings.tree().objectForKey(section).objectForKey(key);
//
// The three conversions work in place and may be combined; none of them changes which values are defaults.
class Settings {
 public:
  // `file` is the file's section tree. It is copied, not kept. `known` must outlive this object. Without
  // `suppliesDefaults`, only what the file holds is in force.
  Settings(const Plist& file, const KnownSections& known, bool suppliesDefaults);

  // Returns a section tree. The file's sections come first, and in each the file's own keys.
  const Plist& tree() const noexcept { return tree_; }
  // Returns true if the value is a default that the file does not hold.
  bool isDefault(const Plist& section, const Plist& key) const;

  // Converts boolean settings to "Yes" and "No", including those that the file holds as numbers.
  void spellBooleans();
  // Converts boolean settings to booleans. Every text except "Yes" is false, as it is to the daemons.
  void typeBooleans();
  // Converts the file monitor's actions to the codes that the suite's programs use. Other words stay.
  void encodeActions();

 private:
  const KnownSections& known_;
  Plist tree_;
  Plist supplied_;  // the part of tree_ that is not in the file
};

}  // namespace zekara
