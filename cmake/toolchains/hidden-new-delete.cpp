// The operators new and delete of programs that zig links for macOS, in place of those in its C++ library.
// Those are exported as weak symbols, so that macOS's dynamic linker would have every other library of the
// process use them.

#include <cstdlib>
#include <new>

#define HIDDEN __attribute__((visibility("hidden")))

HIDDEN void* operator new(std::size_t size) {
  for (;;) {
    void* memory = std::malloc(size != 0 ? size : 1);
    if (memory != nullptr) return memory;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

HIDDEN void* operator new[](std::size_t size) {
  return operator new(size);
}

// All forms that a program refers to have to be here: otherwise the C++ library's are linked, and export
// these as well.
HIDDEN void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (...) {
    return nullptr;
  }
}

HIDDEN void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return operator new(size, std::nothrow);
}

HIDDEN void operator delete(void* memory) noexcept {
  std::free(memory);
}

HIDDEN void operator delete[](void* memory) noexcept {
  std::free(memory);
}

HIDDEN void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

HIDDEN void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
