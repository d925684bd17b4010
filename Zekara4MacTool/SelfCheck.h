#pragma once

#include <string>

namespace zekara {

// Checks that the file at `path`, which is the tool's own executable, belongs to user 0 and group 0 and has
// mode 04755. If not, repairs it: owner and group first, then the mode. `path` is used as it is; a symbolic
// link is followed. Logs the outcome. Always returns true.
//
// If a change cannot be made, logs it and throws an NSError with the domain "xx" and the code 123. Its user
// info is the IDs that were asked for if the owner change failed, and the attributes that were found (nil if
// there were none) if the mode change failed.
//
// A process that runs with rights that its caller lacks repairs only the file that it is running. For every
// other path the owner change fails, and the path is not opened. It also fails if the running file has been
// withdrawn (OpenRunningExecutableNamed). If the file loses its last name during the repair, the mode change
// fails, and the file is left with mode 0600.
bool SelfCheck(const std::string& path);

}  // namespace zekara
