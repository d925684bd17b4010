#include "PortableFoundation/Descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace zekara {
namespace {

// Waits until the descriptor is ready if the failed call found it non-blocking and not ready; the caller then
// makes the call again. Returns false for every other failure.
bool WaitUntilReady(int descriptor, short event) noexcept {
  if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
  pollfd ready = {.fd = descriptor, .events = event, .revents = 0};
  poll(&ready, 1, -1);
  return true;
}

// O_EXLOCK makes the lock part of the open. O_NONBLOCK must not be added, because the open would then not
// wait for the lock.
Descriptor OpenAndLock(const char* path, mode_t mode) noexcept {
#ifdef O_EXLOCK
  return OpenAt(AT_FDCWD, path, O_RDWR | O_CREAT | O_EXLOCK, mode);
#else
  Descriptor file = OpenAt(AT_FDCWD, path, O_RDWR | O_CREAT, mode);
  if (!file.isOpen()) return file;
  return RetryOnInterrupt([&] { return flock(file.get(), LOCK_EX); }) == 0 ? std::move(file) : Descriptor();
#endif
}

}  // namespace

void Descriptor::reset(int descriptor) noexcept {
  const int old = std::exchange(descriptor_, descriptor);
  // Not retried after EINTR: on Linux the number is free by then, and another thread may have taken it.
  if (old >= 0) close(old);
}

Descriptor OpenAt(int directory, const char* path, int flags, mode_t mode) noexcept {
  return Descriptor(
      RetryOnInterrupt([&] { return openat(directory, path, flags | O_CLOEXEC | O_NOCTTY, mode); }));
}

// Looks before it opens. With O_PATH the file that was looked at is the one that is opened, through /proc;
// without /proc or O_PATH another file may take its place in between, and is then refused after it was
// opened.
Descriptor OpenRegularFile(const char* path) noexcept {
  struct stat named = {};
#ifdef O_PATH
  const Descriptor reference = OpenAt(AT_FDCWD, path, O_PATH);
  if (!Examine(reference, named) || !S_ISREG(named.st_mode)) return Descriptor();
  char link[32];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", reference.get());
  Descriptor file = OpenAt(AT_FDCWD, link, O_RDONLY | O_NONBLOCK);
  if (!file.isOpen()) file = OpenAt(AT_FDCWD, path, O_RDONLY | O_NONBLOCK);
#else
  if (!Examine(path, named) || !S_ISREG(named.st_mode)) return Descriptor();
  Descriptor file = OpenAt(AT_FDCWD, path, O_RDONLY | O_NONBLOCK);
#endif
  struct stat opened = {};
  const bool isNamed = Examine(file, opened) && IsSameFile(named, opened);
  return isNamed && S_ISREG(opened.st_mode) ? std::move(file) : Descriptor();
}

// Examines the path again when the lock is granted: a program that replaced the file by a rename meanwhile
// would otherwise leave this process with the lock on a file that has no name any more.
Descriptor OpenLockedFile(const char* path, mode_t mode) noexcept {
  constexpr int kAttempts = 16;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Descriptor file = OpenAndLock(path, mode);
    struct stat opened = {};
    if (!Examine(file, opened) || !S_ISREG(opened.st_mode)) break;
    struct stat named = {};
    if (Examine(path, named) && IsSameFile(named, opened)) return file;
  }
  return Descriptor();
}

bool Examine(const Descriptor& file, struct stat& attributes) noexcept {
  return file.isOpen() && RetryOnInterrupt([&] { return fstat(file.get(), &attributes); }) == 0;
}

bool Examine(const char* path, struct stat& attributes) noexcept {
  return RetryOnInterrupt([&] { return stat(path, &attributes); }) == 0;
}

ssize_t ReadSome(int descriptor, char* buffer, std::size_t size) noexcept {
  ssize_t count = 0;
  do {
    count = RetryOnInterrupt([&] { return read(descriptor, buffer, size); });
  } while (count < 0 && WaitUntilReady(descriptor, POLLIN));
  return count;
}

int WriteAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t count = RetryOnInterrupt([&] { return write(descriptor, bytes.data(), bytes.size()); });
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0) {
      errno = EIO;  // the next call might take nothing either, for ever
      return -1;
    } else if (!WaitUntilReady(descriptor, POLLOUT)) {
      return -1;
    }
  }
  return 0;
}

}  // namespace zekara
