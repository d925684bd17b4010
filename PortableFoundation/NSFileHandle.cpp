#include "PortableFoundation/NSFileHandle.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSRunLoop.h"

namespace zekara {
namespace {

[[noreturn]] void RaiseSystemError(const char* what, int error) {
  throw NSException(NSFileHandleOperationException, std::string(what) + ": " + std::strerror(error));
}

}  // namespace

std::shared_ptr<NSFileHandle> NSFileHandle::initWithFileDescriptor_closeOnDealloc(int descriptor,
                                                                                  bool closeOnDealloc) {
  return std::shared_ptr<NSFileHandle>(new NSFileHandle(descriptor, closeOnDealloc));
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardInput() {
  return initWithFileDescriptor_closeOnDealloc(STDIN_FILENO, false);
}

std::shared_ptr<NSFileHandle> NSFileHandle::fileHandleWithStandardOutput() {
  return initWithFileDescriptor_closeOnDealloc(STDOUT_FILENO, false);
}

NSFileHandle::~NSFileHandle() {
  cancelReadInBackground();
  if (closeOnDealloc_) closeFile();
}

// The size that the file has now, and a byte to meet its end with, saves growing step by step; what counts is
// what the reads give.
std::string NSFileHandle::readDataToEndOfFile() {
  struct stat attributes = {};
  std::string bytes;
  if (fstat(descriptor_, &attributes) == 0 && S_ISREG(attributes.st_mode)) {
    bytes.resize(static_cast<std::size_t>(attributes.st_size) + 1);
  }
  for (std::size_t length = 0;;) {
    if (length == bytes.size()) bytes.resize(length + kBlockSize);
    const ssize_t count = ReadSome(descriptor_, bytes.data() + length, bytes.size() - length);
    if (count < 0) RaiseSystemError("cannot read", errno);
    if (count == 0) {
      bytes.resize(length);
      return bytes;
    }
    length += static_cast<std::size_t>(count);
  }
}

// The position first: a caller that is about to write wants nothing between the cut and the write.
void NSFileHandle::truncateFileAtOffset(off_t offset) {
  if (lseek(descriptor_, offset, SEEK_SET) < 0) RaiseSystemError("cannot seek", errno);
  if (RetryOnInterrupt([&] { return ftruncate(descriptor_, offset); }) != 0) {
    RaiseSystemError("cannot truncate", errno);
  }
}

void NSFileHandle::writeData(std::string_view bytes) {
  if (WriteAll(descriptor_, bytes) != 0) RaiseSystemError("cannot write", errno);
}

void NSFileHandle::synchronizeFile() {
  int result = 0;
  do {
#ifdef __APPLE__
    result = fcntl(descriptor_, F_FULLFSYNC);  // fsync() leaves the bytes in the drive's cache there
    if (result != 0 && errno != EINTR) result = fsync(descriptor_);
#else
    result = fsync(descriptor_);
#endif
  } while (result != 0 && errno == EINTR);
  // EINVAL: a kind of file, or a file system, without anything to flush.
  if (result != 0 && errno != EINVAL) RaiseSystemError("cannot flush", errno);
}

void NSFileHandle::closeFile() noexcept {
  cancelReadInBackground();
  Descriptor(std::exchange(descriptor_, -1)).reset();
}

void NSFileHandle::ignoreBrokenPipes() noexcept {
  struct sigaction action = {};
  if (sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
  }
}

void NSFileHandle::readInBackground(ReadCompletion completion) {
  NSRunLoop::currentRunLoop().addRead(*this, std::move(completion));
}

void NSFileHandle::cancelReadInBackground() noexcept {
  NSRunLoop::currentRunLoop().removeRead(*this);
}

}  // namespace zekara
