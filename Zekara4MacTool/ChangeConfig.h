#pragma once

#include "PortableFoundation/Plist.h"
#include "Zekara4MacTool/ProcessState.h"

namespace zekara {

// The command "ChangeConfig": applies `patch` (a section tree, or nil) to the suite's configuration file and
// then sends SIGHUP to the daemons concerned, to the file monitor before the updater. A daemon that cannot be
// signalled is logged and is not a failure. Raises what PatchIniFile() raises; no daemon is signalled then.
// Waits without limit for the lock on the file.
void ChangeConfigCmd(const Plist& patch);

// The same inside the caller's transaction, for a task that goes on after the change.
void ChangeConfigCmd(const Plist& patch, Transaction& transaction);

}  // namespace zekara
