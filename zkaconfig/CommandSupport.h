#pragma once

#include <string>
#include <vector>

#include "PortableFoundation/Plist.h"
#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/Settings.h"

namespace zekara {

// What the commands share: their output, the file that they read, and two sentences. Answers go to standard
// output, where programs may read them; remarks are for people and go to standard error.

// Writes an answer to standard output at once. Raises Failure (Unreadable) if that fails, for example because
// the disk is full or the reader has closed its end.
void Print(const std::string& text);
// Writes a report of settings, or of differences, in colours if standard output is a terminal that has them
// and NO_COLOR is unset or empty. Only the form for people is coloured.
void PrintSettings(const std::string& report, OutputForm form);
void PrintDifference(const std::string& report, OutputForm form);

// Writes a line to standard error. The caller has made `text` printable.
void Remark(const std::string& text);

// Returns the section tree of the configuration file that `arguments` name. If the suite's file is missing,
// remarks on it unless `mayBeMissing` is true. Raises Failure (Unreadable), also if another file is missing.
Plist ReadFile(const Arguments& arguments, bool mayBeMissing);

// Returns the keys of a dictionary, in its order; none for nil.
std::vector<std::string> NamesOf(const Plist& dictionary);

// Remarks that the section does not exist, and which one was probably meant. Returns the exit status for
// that.
ExitStatus RemarkUnsetSection(const Plist& sections, const std::string& section);

}  // namespace zekara
