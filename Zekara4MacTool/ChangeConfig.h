#pragma once

#include "PortableFoundation/Plist.h"

namespace zekara {

// The command "ChangeConfig": applies `patch` (a section tree, or nil) to the suite's configuration file and
// sends SIGHUP to the daemons concerned, the file monitor before the updater. Raises what PatchIniFile()
// raises; then nobody is signalled.
void ChangeConfigCmd(const Plist& patch);

}  // namespace zekara
