#pragma once

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// The commands that have the tool change the configuration file, and "diff", which shows what "apply" would
// change. Each sends the difference to what the file holds, and starts the tool only if there is one. The
// file's lock is released before the tool takes it, so another front end may change the file in between.
//
// Each writes the changed settings to standard output and returns Done; "diff" returns Differs if there are
// any. Each raises Failure: Usage for settings that the file or the suite does not understand, Unreadable for
// a file that cannot be read, and what ChangeConfiguration() raises. Each may block for the time limit of
// `arguments` while it waits for the lock on the file (unless those refuse to wait), and once more
// while it waits for the tool.
ExitStatus RunSet(const Arguments& arguments);
ExitStatus RunAdd(const Arguments& arguments);
ExitStatus RunRemove(const Arguments& arguments);
ExitStatus RunReset(const Arguments& arguments);
ExitStatus RunApply(const Arguments& arguments);
ExitStatus RunDiff(const Arguments& arguments);

}  // namespace zekara
