#pragma once

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Whether the process runs with rights that its caller lacks: its real and effective ids differ, or the system says that
// the start changed them.
bool NSProcessIsPrivileged() noexcept;

// The file that this process is running, open for reading, whatever its path names by now; none when the system does not tell.
Descriptor NSProcessOpenExecutable() noexcept;

// Leaves the environment empty.
void NSProcessClearEnvironment() noexcept;

// Keeps the process from being traced, read or dumped by those who started it, where the system can be told so.
void NSProcessForbidTracing() noexcept;

// Closes every descriptor from `first` up.
void NSProcessCloseDescriptorsFrom(int first) noexcept;

}  // namespace zekara
