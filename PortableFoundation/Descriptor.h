#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace zekara {

// Owns an open file descriptor, or none (-1), and closes it when it is destroyed. Can be moved, not copied; a
// moved-from object holds none.
//
//   const Descriptor file = OpenRegularFile(path);
//   if (file.isOpen()) Use(file.get());
//
// As with the number itself, an object belongs to one thread at a time.
class Descriptor {
 public:
  // Takes ownership of `descriptor`; a negative number means none.
  explicit Descriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  // Returns the number for use in a system call, or a negative number for none. The object keeps ownership.
  int get() const noexcept { return descriptor_; }
  bool isOpen() const noexcept { return descriptor_ >= 0; }
  // Passes ownership on to the caller; the object then holds none.
  int release() noexcept { return std::exchange(descriptor_, -1); }
  // Closes what the object holds and takes ownership of `descriptor`. An error of the closing is ignored.
  void reset(int descriptor = -1) noexcept;

 private:
  int descriptor_;
};

// Makes a system call until it is not interrupted by a signal, and returns its result. `call` makes the call
// once and returns -1 with errno EINTR if it was interrupted. Must not be used for close(), which frees the
// number even if it is interrupted.
template <class Call>
auto RetryOnInterrupt(Call call) noexcept {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// None of the functions below raises. All retry after a signal. A failure leaves errno set.

// Calls openat() relative to the directory `directory` (AT_FDCWD for the working directory) with O_CLOEXEC
// and O_NOCTTY added to `flags`. Returns a Descriptor that holds none if that fails.
Descriptor OpenAt(int directory, const char* path, int flags, mode_t mode = 0) noexcept;

// Opens a regular file for reading, following links. Anything else, such as a FIFO or a device, is not opened
// at all because opening alone may act on it; the Descriptor returned then holds none. Never blocks.
Descriptor OpenRegularFile(const char* path) noexcept;

// Opens a regular file for reading and writing, creating it with `mode` (less the umask) if it is missing,
// and takes an exclusive flock() on it. Waits for the lock without limit. If the path was replaced while
// waiting, opens the new file; gives up after 16 attempts. Closing the descriptor releases the lock. Returns
// a Descriptor that holds none if the file cannot be opened or locked, or is not a regular file.
Descriptor OpenLockedFile(const char* path, mode_t mode) noexcept;

// Calls fstat(), or stat(), which follows links. Returns true if that succeeds and `attributes` is filled in.
// For a Descriptor that holds none, returns false and leaves errno alone: the failure that it comes from set
// it.
bool Examine(const Descriptor& file, struct stat& attributes) noexcept;
bool Examine(const char* path, struct stat& attributes) noexcept;

// Reads at most `size` bytes once, and returns how many; 0 is the end of the input, -1 a failure. Blocks,
// even if the descriptor is non-blocking.
ssize_t ReadSome(int descriptor, char* buffer, std::size_t size) noexcept;

// Writes all of `bytes`, in as many calls as that takes, and returns 0, or -1 for a failure; part of the
// bytes may then have been written. Blocks, even if the descriptor is non-blocking. A write that takes no
// byte is a failure with EIO.
int WriteAll(int descriptor, std::string_view bytes) noexcept;

// Returns true if both describe the same file.
inline bool IsSameFile(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace zekara
