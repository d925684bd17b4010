#pragma once

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// The commands that have the tool change the configuration file, and "diff", which shows what "apply" would
// change. Each sends the difference to what the file holds, and starts the tool only if there is one. The
// file's lock is released before the tool takes it, so another front end may change the file in between.
// Each raises Failure.
ExitStatus RunSet(const Arguments& arguments);
ExitStatus RunAdd(const Arguments& arguments);
ExitStatus RunRemove(const Arguments& arguments);
ExitStatus RunReset(const Arguments& arguments);
ExitStatus RunApply(const Arguments& arguments);
ExitStatus RunDiff(const Arguments& arguments);

}  // namespace zekara
