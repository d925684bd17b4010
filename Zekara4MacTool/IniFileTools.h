#pragma once

#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// Applies a patch (a section tree, or nil) to the INI file at `path` as one locked read-modify-write, and
// returns the names of the sections that it altered. The file is made, with mode 0444, when it is missing,
// and is rewritten whole in the writer's form by every call that succeeds. Waits without limit for whoever
// holds the lock, an exclusive flock() on the file.
//
// Raises NSException "PatchIniFile" with the reason "can't open ini file" when the file cannot be opened,
// locked or is no regular file, and passes on what reading, parsing, patching, writing and closing raise. The
// file is unchanged up to the truncation, and truncated or partly written after it.
ZKAChangedSections PatchIniFile(const std::string& path, const Plist& patch);

}  // namespace zekara
