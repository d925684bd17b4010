#pragma once

// Programs linked with AllocationFaults.cpp can be made to run out of memory at any allocation.

namespace zekara::test {

// A new handler, if one is set, is called when an allocation by a throwing operator fails, and may throw.

// The allocation number `number`, counted from 1 and from now on, fails, and every later one too when
// `forever`.
void FailAllocation(long number, bool forever = false) noexcept;
// No allocation fails any more. Returns whether one has failed since FailAllocation().
bool StopFailingAllocations() noexcept;
// How many blocks are allocated now.
long CountLiveBlocks() noexcept;

}  // namespace zekara::test
