#include "PortableFoundation/NSFileHandle.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "PortableFoundation/NSException.h"

// Each operation is a few system calls, retried by the functions of Descriptor.h, and an exception with the
// system's words if one fails. Background reads belong to the thread's run loop; the handle only
// remembers the token of the one that it has armed, so that it can end or cancel that read and no other.

namespace zekara {
namespace {

// Called directly after the failed call, while `error` is still the errno of that call.
[[noreturn]] void RaiseSystemError(const char* what, int error) {
  throw NSException(NSFileHandleOperationException, std::string(what) + ": " + std::strerror(error));
}

// Returns 0, or the error of the flush.
int FlushToDisk(int descriptor) noexcept {
  const auto flush = [&] {
#ifdef __APPLE__
    // fsync() leaves the bytes in the drive's cache there.
    const int result = fcntl(descriptor, F_FULLFSYNC);
    if (result == 0 || (errno != ENOTTY && errno != ENOTSUP && errno != EINVAL)) return result;
#endif
    return fsync(descriptor);
  };
  return RetryOnInterrupt(flush) == 0 ? 0 : errno;
}

// These say that the file, or its file system, has nothing that could be flushed. EIO and ENOSPC say that
// what was written is lost.
bool IsFlushUnsupported(int error) noexcept {
  constexpr int kUnsupported[] = {EINVAL, ENOSYS, EOPNOTSUPP, ENOTSUP, EROFS};
  return std::ranges::find(kUnsupported, error) != std::end(kUnsupported);
}

}  // namespace

std::shared_ptr<NSFileHandle> NSFileHandle::initWithFileDescriptor_closeOnDealloc(int descriptor,
                                                                                  bool closeOnDealloc) {
  return std::shared_ptr<NSFileHandle>(new NSFileHandle(Descriptor(descriptor), closeOnDealloc));
}

std::shared_ptr<NSFileHandle> NSFileHandle::handleOwning(Descriptor descriptor) {
  return std::shared_ptr<NSFileHandle>(new NSFileHandle(std::move(descriptor), true));
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardInput() {
  return initWithFileDescriptor_closeOnDealloc(STDIN_FILENO, false);
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardOutput() {
  return initWithFileDescriptor_closeOnDealloc(STDOUT_FILENO, false);
}

// A descriptor that the handle does not own is released, so that the member's destructor does not close it.
NSFileHandle::~NSFileHandle() {
  cancelReadInBackground(armedRead_);
  if (!closeOnDealloc_) static_cast<void>(descriptor_.release());
}

// Reserves the current size plus one byte, so that the read that finds the end needs no reallocation. The
// size is only a hint: the file is read until a read returns nothing.
std::string NSFileHandle::readDataToEndOfFile() {
  struct stat attributes = {};
  std::string bytes;
  if (Examine(descriptor_, attributes) && S_ISREG(attributes.st_mode)) {
    bytes.resize(static_cast<std::size_t>(attributes.st_size) + 1);
  }
  for (std::size_t length = 0;;) {
    if (length == bytes.size()) bytes.resize(length + NSRunLoop::kBlockSize);
    const ssize_t count = ReadSome(descriptor_.get(), bytes.data() + length, bytes.size() - length);
    if (count < 0) RaiseSystemError("cannot read", errno);
    if (count == 0) {
      bytes.resize(length);
      return bytes;
    }
    length += static_cast<std::size_t>(count);
  }
}

// Seeks first, so that nothing can fail between truncating and the caller's write.
void NSFileHandle::truncateFileAtOffset(off_t offset) {
  if (lseek(descriptor_.get(), offset, SEEK_SET) < 0) RaiseSystemError("cannot seek", errno);
  if (RetryOnInterrupt([&] { return ftruncate(descriptor_.get(), offset); }) != 0) {
    RaiseSystemError("cannot truncate", errno);
  }
}

void NSFileHandle::writeData(std::string_view bytes) {
  if (WriteAll(descriptor_.get(), bytes) != 0) RaiseSystemError("cannot write", errno);
}

void NSFileHandle::synchronizeFile() {
  const int error = FlushToDisk(descriptor_.get());
  if (error != 0 && !IsFlushUnsupported(error)) RaiseSystemError("cannot flush", error);
}

void NSFileHandle::closeFile() noexcept {
  NSRunLoop::currentRunLoop().endRead(armedRead_);
  descriptor_.reset();
}

// A handler that the program has installed, or a decision to ignore the signal, stays in force.
void NSFileHandle::ignoreBrokenPipes() noexcept {
  struct sigaction action = {};
  if (sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
  }
}

NSRunLoop::ReadToken NSFileHandle::readInBackground(NSRunLoop::ReadCompletion completion) {
  if (!descriptor_.isOpen()) throw NSException(NSFileHandleOperationException, "the handle is closed");
  NSRunLoop& loop = NSRunLoop::currentRunLoop();
  if (loop.isArmed(armedRead_)) throw NSException(NSFileHandleOperationException, "a read is armed already");
  return armedRead_ = loop.addRead(descriptor_.get(), std::move(completion));
}

void NSFileHandle::cancelReadInBackground(NSRunLoop::ReadToken token) noexcept {
  if (token == armedRead_) NSRunLoop::currentRunLoop().cancelRead(token);
}

}  // namespace zekara
