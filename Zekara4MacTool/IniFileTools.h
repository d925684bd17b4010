#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"
#include "Zekara4MacTool/ProcessState.h"

namespace zekara {

// Applies `patch` (a section tree, or nil) to the INI file at `path` as one locked read-modify-write and
// returns the names of the sections that it altered. Creates the file with mode 0444 (less the umask) if it
// is missing. Every successful call rewrites the whole file in the writer's form, even if nothing changed.
// The lock is an exclusive flock() on the file; the call waits for it without limit.
//
// Raises NSException "PatchIniFile" with the reason "can't open ini file" if the file cannot be opened or
// locked, or is not a regular file. Passes on what reading, parsing, patching and writing raise. The file is
// unchanged if the failure comes before the truncation, and truncated or partly written afterwards. If memory
// for the new text runs out, or if the text is larger than the process may write, the file is unchanged.
ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch);

// The same inside the caller's transaction: blocks every signal in it once the file is locked.
ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch, Transaction& transaction);

}  // namespace zekara
