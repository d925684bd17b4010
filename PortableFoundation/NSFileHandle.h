#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSRunLoop.h"

namespace zekara {

// An open file descriptor with the file operations of the suite. Failures raise NSException
// "NSFileHandleOperationException"; the reason names the operation and the system's error. A handle belongs
// to the thread that made it. Every operation is retried when a signal interrupts it, and waits if the
// descriptor turns out to be non-blocking.
class NSFileHandle {
 public:
  // Wraps a descriptor that is already open. If `closeOnDealloc` is true, the handle owns it: the destructor
  // closes it. If false, the caller keeps it open for as long as the handle is used.
  static std::shared_ptr<NSFileHandle> initWithFileDescriptor_closeOnDealloc(int descriptor,
                                                                             bool closeOnDealloc);

  // Takes ownership of `descriptor`; the destructor closes it.
  static std::shared_ptr<NSFileHandle> handleOwning(Descriptor descriptor);

  // Handles of descriptors 0 and 1, which they do not own.
  static std::shared_ptr<NSFileHandle> fileHandleWithStandardInput();
  static std::shared_ptr<NSFileHandle> fileHandleWithStandardOutput();

  // Cancels an armed read; its completion is not called. Closes the descriptor if the handle owns it.
  ~NSFileHandle();

  // Returns the descriptor, or -1 after closeFile().
  int fileDescriptor() const noexcept { return descriptor_.get(); }

  // Reads from the current position to the end of the file. Blocks.
  std::string readDataToEndOfFile();

  // Truncates or extends the file to `offset` bytes and moves the position there.
  void truncateFileAtOffset(off_t offset);

  // Writes all of `bytes` at the current position. Blocks. After a failure, part of them may have been
  // written.
  void writeData(std::string_view bytes);

  // Flushes the file: returns when what was written would survive a loss of power, as far as the system can
  // tell. Returns silently if the file system cannot flush this file at all; raises if flushing failed.
  void synchronizeFile();

  // Closes the descriptor, owned or not. An armed read is ended: the run loop calls its completion with an
  // empty block. Every later operation raises.
  void closeFile() noexcept;

  // Ignores SIGPIPE for the whole process, unless the program has installed a handler of its own. Writing to
  // a pipe or socket without a reader then raises instead of ending the process.
  static void ignoreBrokenPipes() noexcept;

  // Arms one read on the current thread's run loop and returns at once. When input has arrived, or has ended,
  // the run loop calls `completion` once on this thread with the block (NSRunLoop::ReadCompletion). Raises if
  // a read is armed on this handle already, or if the handle is closed.
  NSRunLoop::ReadToken readInBackground(NSRunLoop::ReadCompletion completion);

  // Cancels the read that `token` names; its completion is not called. Does nothing if that read has been
  // taken by the run loop, or if another read has been armed since.
  void cancelReadInBackground(NSRunLoop::ReadToken token) noexcept;

 private:
  NSFileHandle(Descriptor descriptor, bool closeOnDealloc) noexcept
      : descriptor_(std::move(descriptor)), closeOnDealloc_(closeOnDealloc) {}

  Descriptor descriptor_;
  bool closeOnDealloc_;
  NSRunLoop::ReadToken armedRead_ = 0;
};

}  // namespace zekara
