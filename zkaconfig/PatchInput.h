#pragma once

#include <span>
#include <string>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/KnownSections.h"

namespace zekara {

// A patch, as a section tree, from the words of "set": a section's name, then KEY=VALUE words, then perhaps
// another section. A value with commas, and a key given more than once, make a list; with `keepsStrings`
// commas are text. All values are strings. Raises Failure (Usage).
Plist PatchFromWords(std::span<const std::string> words, bool keepsStrings);

// A patch from the bytes of an XML property list (a dictionary of dictionaries) or of an INI file, whose last
// line need not be ended. `name` is what messages call the file. Raises Failure (Unreadable).
Plist PatchFromFile(const std::string& bytes, const std::string& name);

// A patch made ready for the tool, with what is wrong with it, one sentence each.
struct ReviewedPatch {
  Plist patch = Plist::dictionary();
  std::vector<std::string> problems;  // reasons not to send it
  std::vector<std::string> warnings;
};

// Brings the values into the form in which the file holds them (texts of digits become numbers unless
// `keepsStrings`, lists of one value that value, boolean settings "Yes" or "No", actions their proper words)
// and checks them: against what the suite knows of the key, and whether the file can give them back as they
// are. Raises Failure (Usage) for a section that is no dictionary, which no patch may hold.
ReviewedPatch ReviewPatch(const Plist& patch, const KnownSections& known, bool keepsStrings);

}  // namespace zekara
