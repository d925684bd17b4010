#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Whether the process runs with rights that its caller lacks: its real and effective ids differ, or the
// system says that the start changed them.
bool ProcessIsPrivileged() noexcept;

// The file that this process is running, open for reading, whatever its path names by now; none when the
// system does not tell.
Descriptor OpenRunningExecutable() noexcept;

// The same, if `path` names that very file. The path itself is never opened: it may name a FIFO, or a device
// that acts.
Descriptor OpenRunningExecutableNamed(const char* path) noexcept;

// How many bytes a file may have that this process writes.
std::uint64_t FileSizeLimit() noexcept;

// Blocks every signal for the calling thread until the object goes.
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

// Gives a process that is root by its effective id alone 0 as its real ids too, group included, until the
// object goes: the signals of those who started it do not reach it then. Does nothing for any other process,
// and what the system refuses stays as it is.
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

// Leaves the environment empty.
void ClearEnvironment() noexcept;

// Keeps the process from being traced, read or dumped by those who started it, where the system can be told
// so.
void ForbidTracing() noexcept;

// Gives the process the scheduling of any other, for the processor and, where there is such a thing, for
// files: who has started it might let it wait while it holds what others wait for.
void RestoreDefaultPriority() noexcept;

// Opens /dev/null for each of the descriptors 0, 1 and 2 that is closed, so that no file that the program
// opens later takes their numbers. Descriptor 1 is opened for reading only: writing results to a closed
// standard output then fails instead of losing them silently.
void OpenStandardDescriptors() noexcept;

// Closes every descriptor from `first` up.
void CloseDescriptorsFrom(int first) noexcept;

}  // namespace zekara
