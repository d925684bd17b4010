#pragma once

// Memory that runs out and system calls that fail.

#ifdef __linux__
#include <sys/syscall.h>
#endif

#include <initializer_list>

namespace zekara::test {

// The allocations of a program that is linked with AllocationFaults.cpp. Allocation number `number`, counted
// from 1 and from this call on, fails; if `forever` is set, every later one fails too. A new handler, if one
// is set, is called first and may throw.
void FailAllocation(long number, bool forever = false) noexcept;
// Ends the failing. Returns true if an allocation has failed since FailAllocation().
bool StopFailingAllocations() noexcept;
// Returns how many blocks are allocated now.
long CountLiveBlocks() noexcept;

// Makes system calls, given by their numbers (SYS_...), fail with the errno `error` in this process and its
// children from now on, except for the three standard descriptors (0 to 2 as the first argument). Returns
// false if the kernel refuses the filter. Linux only.
bool MakeSystemCallsFail(std::initializer_list<int> calls, int error);

}  // namespace zekara::test
