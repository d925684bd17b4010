#include <cstdlib>
#include <new>

#include "tests/support/Faults.h"

namespace zekara::test {
namespace {

long g_live = 0;
long g_remaining = 0;  // allocations to the failing one; 0 is none
bool g_fails_forever = false;
bool g_has_failed = false;

bool IsToFail() noexcept {
  if (g_remaining == 0 || --g_remaining > 0) return false;
  if (g_fails_forever) g_remaining = 1;
  g_has_failed = true;
  return true;
}

}  // namespace

void FailAllocation(long number, bool forever) noexcept {
  g_remaining = number;
  g_fails_forever = forever;
  g_has_failed = false;
}

bool StopFailingAllocations() noexcept {
  g_remaining = 0;
  return g_has_failed;
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

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t size) {
  return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return operator new(size, std::nothrow);
}

void operator delete[](void* block) noexcept {
  operator delete(block);
}

void operator delete[](void* block, std::size_t) noexcept {
  operator delete(block);
}
