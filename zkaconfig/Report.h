#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/Arguments.h"
#include "zkaconfig/Settings.h"

namespace zekara {

// The texts that the commands write to standard output. zkaconfig(1) tells the shape of each for programs.

// All settings, or one section's for a section that is not nil.
std::string SettingsReport(const Settings& settings, const Plist& section, OutputForm form);
// One value; for people a list takes one line an element.
std::string ValueReport(const Settings& settings, const Plist& section, const Plist& key, OutputForm form);
// What `difference`, a patch, alters in `old`; `isSent` tells programs whether it has been done.
std::string DifferenceReport(const Plist& old, const Plist& difference, bool isSent, OutputForm form);
// Names, one a line for people.
std::string NamesReport(const Plist& names, OutputForm form);

}  // namespace zekara
