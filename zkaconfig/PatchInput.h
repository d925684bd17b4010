#pragma once

#include <span>
#include <string>
#include <vector>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/Settings.h"

namespace zekara {

// Returns a patch, as a section tree, from the operands of "set": a section's name, then KEY=VALUE words,
// then perhaps another section. A value with commas, and a key given more than once, make a list; if
// `keepsStrings` is true, commas are text. All values are strings. Raises Failure (Usage).
Plist PatchFromWords(std::span<const std::string> words, bool keepsStrings);

// Returns the elements that `texts` name, as an array in the file's form. Commas separate elements and digits
// make a number unless `keepsStrings` is true.
Plist ElementsFromWords(std::span<const std::string> texts, bool keepsStrings);

// Parses an XML property list or JSON (a dictionary of dictionaries), or an INI file, whose last line need
// not end in a line end. `name` is what messages call the file. Raises Failure (Unreadable).
Plist PatchFromFile(const std::string& bytes, const std::string& name);

// Returns `tree` with values in place of the dictionaries of "value" and "default" that "show" writes for
// programs. A setting that has its value already in `settings`, or that is marked as a default and is unset
// there, is left out, so that applying what "show" wrote changes nothing.
Plist PatchFromShown(const Plist& tree, const Settings& settings);

// Returns the value in the form in which the file holds it: a text of digits becomes a number unless
// `keepsStrings` is true, and a list of one element becomes that element.
Plist FileForm(const Plist& value, bool keepsStrings);

// A patch made ready for the tool, and what is wrong with it, one sentence each.
struct ReviewedPatch {
  Plist patch = Plist::dictionary();
  std::vector<std::string> problems;  // reasons not to send it
  std::vector<std::string> warnings;
};

// Brings the values into the file's form (see FileForm; boolean settings become "Yes" or "No", and actions
// their proper words) and checks them: against what the suite knows of the key, and by reading them back as
// the file would hold them. A name that the file does not hold and that is probably a misspelt known one is a
// problem. `file` is the file's section tree. Raises Failure (Usage) for a section that is not a dictionary,
// because the tool would empty the file on it.
ReviewedPatch ReviewPatch(const Plist& patch, const Plist& file, const KnownSections& known,
                          bool keepsStrings);

}  // namespace zekara
