#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// What a program can ask and change about its own process. None of these functions raises or allocates
// memory; what the system refuses stays as it is, unless a result says so. The caller named here is the user
// who started the program.

// Returns true if the process runs with rights that its caller lacks: its real and effective IDs differ, or
// the system says that the program's set-user-ID or set-group-ID bit changed them.
bool ProcessIsPrivileged() noexcept;

// Opens the file that this process is running, for reading, even if its path names another file by now.
// Returns a Descriptor that holds none if the system does not say which file that is.
Descriptor OpenRunningExecutable() noexcept;

// The same, if `path` names that very file, following links, and if the file has not been withdrawn: it still
// has a name, and some account may execute it. Otherwise the Descriptor holds none. The path itself is never
// opened, because it may name a FIFO, or a device on which opening acts.
Descriptor OpenRunningExecutableNamed(const char* path) noexcept;

// Returns the largest size in bytes to which this process may extend a file.
std::uint64_t FileSizeLimit() noexcept;

// Returns the seconds of CPU time that this process may still use before the system kills it, rounded down by
// two at most. The largest value means that there is no limit.
std::uint64_t CpuTimeLeft() noexcept;

// While this object exists, every signal that can be blocked is blocked for the calling thread. The
// destructor restores the mask that it found; signals that have arrived in between take effect then. Objects
// may be nested.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() noexcept;
  ~AllSignalsBlocked();
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t previous_ = {};
  bool isInEffect_ = false;
};

// While this object exists, a set-user-ID-root process has real user and group ID 0, so its caller cannot
// signal it. The destructor restores the IDs and makes the process undumpable again, because a change of IDs
// resets that. Does nothing in a process whose effective user is not root or whose real user is.
class FullyRoot {
 public:
  FullyRoot() noexcept;
  ~FullyRoot();
  FullyRoot(const FullyRoot&) = delete;
  FullyRoot& operator=(const FullyRoot&) = delete;

 private:
  uid_t user_;
  bool isBorrowed_;
  gid_t group_ = 0;
  gid_t effectiveGroup_ = 0;
};

// Empties the environment. The C library has dropped its dangerous variables from a set-user-ID program's
// environment already, but not TZ.
void ClearEnvironment() noexcept;

// Keeps the caller from tracing the process, reading its memory or having it dumped. Linux does that by
// itself for set-user-ID programs unless fs.suid_dumpable says otherwise; macOS always does.
void ForbidTracing() noexcept;

// Restores default CPU and I/O priority, so that a caller cannot start the program at low priority and stall
// every process that waits for its lock. On macOS, leaves the background state as well; a QoS clamp that a
// parent imposes stays.
void RestoreDefaultPriority() noexcept;

// Opens /dev/null for each of the descriptors 0, 1 and 2 that is closed, so that no file that the program
// opens later takes their numbers. Descriptor 1 is opened for reading only: writing results to a closed
// standard output then fails instead of losing them silently. The system does the same for set-user-ID
// programs, but not for root's own starts.
void OpenStandardDescriptors() noexcept;

// Closes every descriptor from `first` up, even those above the present limit on descriptors.
void CloseDescriptorsFrom(int first) noexcept;

}  // namespace zekara
