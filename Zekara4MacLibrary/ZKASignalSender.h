#pragma once

#include <string>

namespace zekara {

// The files into which the file monitor and the updater write their process ids.
inline constexpr const char* kFileDPidFile = "/var/zekara/run/FileD.pid";
inline constexpr const char* kUpdateDPidFile = "/var/zekara/run/UpdateD.pid";

// The directory in which front ends register: each has a file there whose name begins with "ag" or "cc" and
// whose text begins with its process id.
inline constexpr const char* kFrontEndDirectory = "/var/zekara/run/frontEnd";

// Sends `signal` to the process whose id the file at `path` begins with. Returns whether it was delivered; a
// failure of any kind is logged as "Can't signal <signal> to <path>". The file is read whole, following
// links; it counts as holding 0 when it is missing, unreadable, no regular file or not 7-bit ASCII; an id of
// 0 or below signals nobody. Never blocks on the file and needs no memory for it. Nothing checks what the
// process is.
bool ZKASendSignal(const std::string& path, int signal);

// Sends `signal` to every front-end process registered below "/var/zekara/run/frontEnd", by an entry whose
// relative path begins with "ag" or "cc" and which is read as ZKASendSignal() reads a file. Returns how many
// were signalled. A registration that could not be signalled, for whatever reason, is removed, a directory
// with all that it holds; links are not followed there.
int ZKASendSignalToGUI(int signal);

}  // namespace zekara
