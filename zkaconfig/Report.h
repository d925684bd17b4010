#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/Arguments.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/Settings.h"

namespace zekara {

// The texts that the commands write to standard output. zkaconfig(1) documents the shape of each for
// programs. Only the output for people is made printable; see Printable().

// Returns all settings, or those of `section` unless it is nil.
std::string SettingsReport(const Settings& settings, const Plist& section, OutputForm form);

// Returns the text of values, an array of dictionaries of "section", "key", "value" and "default". If `isOne`
// is true, the array has one element, and its value is written without its key.
std::string ValuesReport(const Plist& values, bool isOne, OutputForm form);

// Returns what the suite knows of all settings, of one section's, or of one; empty texts mean all. For
// people, one setting is described at length, and several with their default, type and summary.
std::string DescriptionReport(const KnownSections& known, const std::string& section, const std::string& key,
                              OutputForm form);

// Returns what `difference`, a patch, changes in `old`. `isSent` is true if the tool has made the
// change, which programs are told.
std::string DifferenceReport(const Plist& old, const Plist& difference, bool isSent, OutputForm form);

// Returns names; for people one on each line.
std::string NamesReport(const Plist& names, OutputForm form);

}  // namespace zekara
