#pragma once

#include <string>

namespace zekara {

// The files into which the file monitor and the updater write their process ids.
inline constexpr const char* kFileDPidFile = "/var/zekara/run/FileD.pid";
inline constexpr const char* kUpdateDPidFile = "/var/zekara/run/UpdateD.pid";

// The directory in which front ends register: each has a file there whose name begins with "ag" or "cc" and
// whose text begins with its process id.
inline constexpr const char* kFrontEndDirectory = "/var/zekara/run/frontEnd";

// Sends `signal` to the process whose ID the file at `path` begins with, in decimal. Returns true if the
// signal was delivered; every failure is logged as "Can't signal <signal> to <path>" and returns false.
//
// Links are followed. A file that is missing, unreadable, not regular or not 7-bit ASCII yields 0; IDs of 0
// and below are never signalled. An ID beyond 32 bits is clamped. The call never blocks on the file, opens
// nothing but a regular file and needs constant memory. It does not check which program the process runs.
bool ZKASendSignal(const std::string& path, int signal);

// Sends `signal` to every front-end process that is registered below kFrontEndDirectory: by an entry whose
// relative path begins with "ag" or "cc" and which is read as ZKASendSignal() reads a file. Returns how many
// were signalled; 0 if the directory is missing.
//
// A registration that could not be signalled, for any reason, is removed, a directory with all that it holds.
// If a directory cannot be removed, the entries left in it are tried as registrations and removed one by one.
// Links in the directory are read through but never entered. A removal that fails is not logged. Safe while
// other users change the directory (NSDirectoryEnumerator).
int ZKASendSignalToGUI(int signal);

}  // namespace zekara
