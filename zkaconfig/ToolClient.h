#pragma once

#include <chrono>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Starts the privileged tool at `toolPath`, has it change the suite's configuration file by `patch`, and
// waits for its reply and its end, for at most `limit` altogether. Returns the tool's log, which names
// the daemons that could not be notified. From then on the process ignores SIGPIPE, because the tool may end
// before it has read its request.
//
// Raises Failure. NoAnswer: the tool cannot be started, or does not reply in time. In the second case it may
// still make the change later, because it waits for the file's lock without limit. Refused: the tool replied
// that it failed; the message has its words.
std::string ChangeConfiguration(const std::string& toolPath, const Plist& patch, std::chrono::seconds limit);

}  // namespace zekara
