#include <climits>
#include <cstdlib>
#include <new>
#include <utility>

#include "tests/support/Faults.h"

namespace zekara::test {
namespace {

long g_live = 0;
long g_count = 0;  // of allocations since FailAllocation()
long g_first_failing = LONG_MAX;
long g_last_failing = LONG_MAX;

bool IsToFail() noexcept {
  return ++g_count >= g_first_failing && g_count <= g_last_failing;
}

}  // namespace

void FailAllocation(long number, bool forever) noexcept {
  g_count = 0;
  g_first_failing = number;
  g_last_failing = forever ? LONG_MAX : number;
}

bool StopFailingAllocations() noexcept {
  return g_count >= std::exchange(g_first_failing, LONG_MAX);
}

long CountLiveBlocks() noexcept {
  return g_live;
}

}  // namespace zekara::test

// In the C++ library the other forms of both operators call these. A sanitizer's forms do not, so each that
// is used is here.
void* operator new(std::size_t size) {
  void* const block = zekara::test::IsToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr && std::get_new_handler() != nullptr) std::get_new_handler()();
  if (block == nullptr) throw std::bad_alloc();
  ++zekara::test::g_live;
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) --zekara::test::g_live;
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  operator delete(block);
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete[](void* block) noexcept {
  operator delete(block);
}

void operator delete[](void* block, std::size_t) noexcept {
  operator delete(block);
}
