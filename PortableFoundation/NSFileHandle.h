#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace zekara {

// An open file descriptor with the file operations of the suite. Failures raise NSException
// "NSFileHandleOperationException" with the system's words for the error. A handle belongs to one thread.
class NSFileHandle {
 public:
  // Receives one block of input; an empty block is the end of the input, or a failure to read.
  using ReadCompletion = std::function<void(std::string_view block)>;

  // With `closeOnDealloc` the handle owns the descriptor and closes it when it is destroyed.
  static std::shared_ptr<NSFileHandle> initWithFileDescriptor_closeOnDealloc(int descriptor,
                                                                             bool closeOnDealloc);
  static std::shared_ptr<NSFileHandle> fileHandleWithStandardInput();
  static std::shared_ptr<NSFileHandle> fileHandleWithStandardOutput();

  NSFileHandle(const NSFileHandle&) = delete;
  NSFileHandle& operator=(const NSFileHandle&) = delete;
  ~NSFileHandle();

  int fileDescriptor() const noexcept { return descriptor_; }

  // Everything from the current position to the end of the file. Blocks.
  std::string readDataToEndOfFile();
  // Cuts or extends the file and moves the position to `offset`.
  void truncateFileAtOffset(off_t offset);
  // Writes all of `bytes` at the current position. Blocks; after a failure part of them may have been
  // written.
  void writeData(std::string_view bytes);
  // Returns when what was written would survive a loss of power, as far as the system can tell.
  void synchronizeFile();
  // Closes the descriptor, owned or not; the handle cannot be used afterwards.
  void closeFile() noexcept;

  // From now on, writing to a pipe or socket without a reader raises instead of ending the process: SIGPIPE
  // is ignored, unless the program has a handler of its own. For the whole process.
  static void ignoreBrokenPipes() noexcept;

  // Arms one read on the current thread's run loop: when input has arrived, or has ended, `completion` is
  // called once, by the run loop, on this thread. A block holds what one read of kBlockSize bytes gives. At
  // most one read may be armed at a time; it is disarmed when the handle is closed or destroyed.
  static constexpr std::size_t kBlockSize = 65536;
  void readInBackground(ReadCompletion completion);
  void cancelReadInBackground() noexcept;

 private:
  NSFileHandle(int descriptor, bool closeOnDealloc) noexcept
      : descriptor_(descriptor), closeOnDealloc_(closeOnDealloc) {}

  int descriptor_;
  bool closeOnDealloc_;
};

}  // namespace zekara
