#pragma once

#include <chrono>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Has the privileged tool at `toolPath` change the suite's configuration file by `patch`: starts it, sends
// one "ChangeConfig" request and waits for the reply and the tool's end, `limit` in all. Returns the tool's
// log, which may tell that a daemon could not be signalled.
//
// Raises Failure: NoAnswer when the tool cannot be started or gives no reply in time (it may then still make
// the change later, as it waits for the file's lock without limit), Refused with the tool's own words when it
// replies that it failed.
std::string ChangeConfiguration(const std::string& toolPath, const Plist& patch, std::chrono::seconds limit);

}  // namespace zekara
