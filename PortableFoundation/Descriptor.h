#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace zekara {

// Owns an open file descriptor, or none (-1); closes it at the end.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const noexcept { return descriptor_; }
  bool isOpen() const noexcept { return descriptor_ >= 0; }
  int release() noexcept { return std::exchange(descriptor_, -1); }
  void reset(int descriptor = -1) noexcept;

 private:
  int descriptor_;
};

// Makes a system call, and makes it again for as long as a signal interrupts it. Not for close().
template <class Call>
auto RetryOnInterrupt(Call call) noexcept {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// The calls below start again when a signal interrupts them, and wait where somebody has made the descriptor
// non-blocking. They return -1 with errno set on failure.

// openat() relative to `directory` (AT_FDCWD for the working directory), with O_CLOEXEC and O_NOCTTY added.
Descriptor OpenAt(int directory, const char* path, int flags, mode_t mode = 0) noexcept;
// Opens a regular file for reading, through links. Anything else, such as a FIFO or a device, is not opened
// at all because opening alone may act on it; no descriptor is returned then.
Descriptor OpenRegularFile(const char* path) noexcept;
// Opens a regular file for reading and writing, makes it with `mode` when it is missing, and takes an
// exclusive flock() on it, for which it waits without limit. Where another file has taken the path meanwhile,
// that one is opened, a few times at most. Closing the descriptor releases the lock.
Descriptor OpenLockedFile(const char* path, mode_t mode) noexcept;
// fstat() and stat(); whether they succeed.
bool Examine(const Descriptor& file, struct stat& attributes) noexcept;
bool Examine(const char* path, struct stat& attributes) noexcept;
// One read of at most `size` bytes; 0 is the end of the input.
ssize_t ReadSome(int descriptor, char* buffer, std::size_t size) noexcept;
// Writes all bytes, however many calls that takes. Returns 0. A write that takes nothing counts as a failure,
// EIO.
int WriteAll(int descriptor, std::string_view bytes) noexcept;

// Whether both describe the same file.
inline bool IsSameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace zekara
