#pragma once

#include <string>

namespace zekara {

// Checks that the file at `path`, which is the tool's own, belongs to user 0 and group 0 and has mode 04755,
// and repairs it: owner and group first, then the mode. Returns true. When a change cannot be made, logs it
// and throws an NSError of the domain "xx" with the code 123, whose user info is the requested ids (owner
// change) or the attributes found (mode change).
//
// A process with rights that its caller lacks repairs nothing but the file that it is running; to it any
// other path is one that does not name the tool, and the owner change fails.
bool SelfCheck(const std::string& path);

}  // namespace zekara
