#pragma once

#include <signal.h>

#include <cstdint>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Whether the process runs with rights that its caller lacks: its real and effective ids differ, or the system says that
// the start changed them.
bool NSProcessIsPrivileged() noexcept;

// The file that this process is running, open for reading, whatever its path names by now; none when the system does not tell.
Descriptor NSProcessOpenExecutable() noexcept;

// The same, if `path` names that very file. The path itself is never opened: it may name a FIFO, or a device that acts.
Descriptor NSProcessOpenExecutableNamed(const char* path) noexcept;

// How many bytes a file may have that this process writes.
std::uint64_t NSProcessFileSizeLimit() noexcept;

// Blocks every signal for the calling thread until the object goes.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() noexcept;
  ~AllSignalsBlocked();
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

// Leaves the environment empty.
void NSProcessClearEnvironment() noexcept;

// Keeps the process from being traced, read or dumped by those who started it, where the system can be told so.
void NSProcessForbidTracing() noexcept;

// Closes every descriptor from `first` up.
void NSProcessCloseDescriptorsFrom(int first) noexcept;

}  // namespace zekara
