#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/KnownSections.h"

namespace zekara {

// The settings in force: what the configuration file holds, and the suite's defaults for what it lacks.
class Settings {
 public:
  // `file` is the file's section tree; it is neither changed nor kept.
  Settings(const Plist& file, const KnownSections& known, bool suppliesDefaults);

  // Section by section, the file's first, the keys that come from the tables behind the file's own.
  const Plist& tree() const noexcept { return tree_; }
  // Whether the value is a default that the file does not hold.
  bool isDefault(const Plist& section, const Plist& key) const;

  // Booleans as "Yes" and "No", also where the file holds a number.
  void spellBooleans();
  // Booleans as booleans; whatever text is not "Yes" is false, as it is to the daemons.
  void typeBooleans();
  // The file monitor's actions as the codes that the suite's programs use. A word that is no action stays.
  void encodeActions();

 private:
  const KnownSections& known_;
  Plist tree_;
  Plist supplied_;  // the part of tree_ that the file lacks
};

}  // namespace zekara
