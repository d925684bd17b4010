#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "tests/support/Faults.h"
#include "tests/support/Processes.h"

namespace zekara::test {
namespace {

std::shared_ptr<NSFileHandle> Open(const std::string& path, int flags) {
  return NSFileHandle::initWithFileDescriptor_closeOnDealloc(open(path.c_str(), flags | O_CLOEXEC, 0644),
                                                             true);
}

bool IsOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) >= 0;
}

// Runs `operation` and expects it to raise NSFileHandleOperationException with this reason.
template <class Operation>
void ExpectRaises(Operation operation, const std::string& reason) {
  try {
    operation();
    ADD_FAILURE() << "nothing raised; expected " << reason;
  } catch (const NSException& exception) {
    EXPECT_EQ(exception.name(), "NSFileHandleOperationException");
    EXPECT_EQ(exception.reason(), reason);
  }
}

std::string SomeBytes(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
  return bytes;
}

class NSFileHandleReading : public testing::TestWithParam<std::size_t> {};

TEST_P(NSFileHandleReading, FileIsReadToItsEnd) {
  const TemporaryDirectory directory;
  const std::string bytes = SomeBytes(GetParam());
  WriteFile(directory / "file", bytes);
  EXPECT_EQ(Open(directory / "file", O_RDONLY)->readDataToEndOfFile(), bytes);
}

TEST_P(NSFileHandleReading, PipeIsReadToItsEnd) {
  Pipe pipe;
  const std::string bytes = SomeBytes(GetParam());
  const pid_t writer = StartChild([&] { return WriteAll(pipe.input.get(), bytes) == 0 ? 0 : 1; });
  pipe.input.reset();
  const auto handle = NSFileHandle::handleOwning(std::move(pipe.output));
  EXPECT_EQ(handle->readDataToEndOfFile(), bytes);
  EXPECT_EQ(WaitForChild(writer), 0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, NSFileHandleReading,
                         testing::Values(0, 1, 4095, 4096, 65535, 65536, 65537, 131072, 1'000'003));

TEST(NSFileHandle, ReadingStartsAtTheCurrentPosition) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "0123456789");
  const auto handle = Open(directory / "file", O_RDONLY);
  lseek(handle->fileDescriptor(), 4, SEEK_SET);
  EXPECT_EQ(handle->readDataToEndOfFile(), "456789");
  EXPECT_EQ(handle->readDataToEndOfFile(), "");
}

#ifdef __linux__
// The files in /proc report a size of 0.
TEST(NSFileHandle, FileThatHoldsMoreThanItsSizeSaysIsReadToItsEnd) {
  const auto handle = Open("/proc/self/status", O_RDONLY);
  EXPECT_THAT(handle->readDataToEndOfFile(), testing::HasSubstr("Uid:"));
}
#endif

TEST(NSFileHandle, FailureToReadRaises) {
  ExpectRaises([] { Open("/", O_RDONLY | O_DIRECTORY)->readDataToEndOfFile(); },
               "cannot read: Is a directory");
  ExpectRaises([] { NSFileHandle::initWithFileDescriptor_closeOnDealloc(-1, false)->readDataToEndOfFile(); },
               "cannot read: Bad file descriptor");
}

TEST(NSFileHandle, TruncatingCutsTheFileAndMovesThePosition) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "0123456789");
  const auto handle = Open(directory / "file", O_RDWR);
  handle->readDataToEndOfFile();
  handle->truncateFileAtOffset(3);
  EXPECT_EQ(ReadFile(directory / "file"), "012");
  handle->writeData("abc");
  EXPECT_EQ(ReadFile(directory / "file"), "012abc");
  handle->truncateFileAtOffset(0);
  handle->writeData("new");
  EXPECT_EQ(ReadFile(directory / "file"), "new");
}

TEST(NSFileHandle, TruncatingBeyondTheEndExtendsWithZeros) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "ab");
  const auto handle = Open(directory / "file", O_RDWR);
  handle->truncateFileAtOffset(4);
  handle->writeData("c");
  EXPECT_EQ(ReadFile(directory / "file"), std::string("ab\0\0c", 5));
}

TEST(NSFileHandle, FailureToTruncateRaises) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "text");
  ExpectRaises([&] { Open(directory / "file", O_RDONLY)->truncateFileAtOffset(0); },
               std::string("cannot truncate: ") + std::strerror(EINVAL));
  EXPECT_EQ(ReadFile(directory / "file"), "text");
  Pipe pipe;
  const auto handle = NSFileHandle::handleOwning(std::move(pipe.input));
  ExpectRaises([&] { handle->truncateFileAtOffset(0); },
               std::string("cannot seek: ") + std::strerror(ESPIPE));
}

TEST(NSFileHandle, DataLargerThanAPipeIsWrittenWhole) {
  Pipe pipe;
  const std::string bytes = SomeBytes(1'000'003);
  const pid_t writer = StartChild([&] {
    pipe.output.reset();
    NSFileHandle::handleOwning(std::move(pipe.input))->writeData(bytes);
    return 0;
  });
  pipe.input.reset();
  EXPECT_EQ(ReadToEnd(pipe.output.get()), bytes);
  EXPECT_EQ(WaitForChild(writer), 0);
}

TEST(NSFileHandle, FailureToWriteRaises) {
  ExpectRaises([] { Open("/dev/full", O_WRONLY)->writeData("x"); }, "cannot write: No space left on device");
  EXPECT_NO_THROW(Open("/dev/full", O_WRONLY)->writeData(""));
}

TEST(NSFileHandle, PipeWithoutAReaderRaisesOnceBrokenPipesAreIgnored) {
  RunInChild([] {
    signal(SIGPIPE, SIG_DFL);
    NSFileHandle::ignoreBrokenPipes();
    Pipe pipe;
    pipe.output.reset();
    const auto handle = NSFileHandle::handleOwning(std::move(pipe.input));
    ExpectRaises([&] { handle->writeData("x"); }, "cannot write: Broken pipe");
  });
}

TEST(NSFileHandle, IgnoringBrokenPipesKeepsTheProgramsOwnHandler) {
  RunInChild([] {
    const auto own = [](int) {};
    signal(SIGPIPE, own);
    NSFileHandle::ignoreBrokenPipes();
    struct sigaction now = {};
    sigaction(SIGPIPE, nullptr, &now);
    EXPECT_EQ(now.sa_handler, static_cast<void (*)(int)>(own));
  });
}

TEST(NSFileHandle, FlushingAFileSucceeds) {
  const TemporaryDirectory directory;
  const auto handle = Open(directory / "file", O_RDWR | O_CREAT);
  handle->writeData("text");
  EXPECT_NO_THROW(handle->synchronizeFile());
}

TEST(NSFileHandle, FlushingWhatHasNothingToFlushSucceeds) {
  const Pipe pipe;
  const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.input.get(), false);
  EXPECT_NO_THROW(handle->synchronizeFile());
}

#ifdef __linux__
TEST(NSFileHandle, FailureToFlushRaises) {
  for (const int error : {EIO, ENOSPC, EDQUOT}) {
    RunInChild([&] {
      const TemporaryDirectory directory;
      const auto handle = Open(directory / "file", O_RDWR | O_CREAT);
      ASSERT_TRUE(MakeSystemCallsFail({SYS_fsync}, error));
      ExpectRaises([&] { handle->synchronizeFile(); }, std::string("cannot flush: ") + std::strerror(error));
    });
  }
}

TEST(NSFileHandle, FlushThatTheFileSystemDoesNotKnowIsNotAFailure) {
  for (const int error : {EINVAL, ENOSYS, EOPNOTSUPP, ENOTSUP, EROFS}) {
    RunInChild([&] {
      const TemporaryDirectory directory;
      const auto handle = Open(directory / "file", O_RDWR | O_CREAT);
      ASSERT_TRUE(MakeSystemCallsFail({SYS_fsync}, error));
      EXPECT_NO_THROW(handle->synchronizeFile()) << error;
    });
  }
}
#endif

TEST(NSFileHandle, OwnedDescriptorIsClosedAtTheEnd) {
  const Pipe pipe;
  const int copy = dup(pipe.output.get());
  NSFileHandle::initWithFileDescriptor_closeOnDealloc(copy, true).reset();
  EXPECT_FALSE(IsOpen(copy));
}

TEST(NSFileHandle, DescriptorThatIsNotOwnedStaysOpen) {
  const Pipe pipe;
  NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.output.get(), false).reset();
  EXPECT_TRUE(IsOpen(pipe.output.get()));
}

TEST(NSFileHandle, ClosingClosesOwnedOrNot) {
  const Pipe pipe;
  for (const bool isOwned : {false, true}) {
    const int copy = dup(pipe.output.get());
    const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(copy, isOwned);
    handle->closeFile();
    EXPECT_FALSE(IsOpen(copy));
    EXPECT_LT(handle->fileDescriptor(), 0);
    const int reused = dup(pipe.output.get());
    handle->closeFile();  // and leaves the number alone, which may have a new owner
    EXPECT_TRUE(IsOpen(reused));
    close(reused);
  }
}

TEST(NSFileHandle, StandardHandlesAreNotOwned) {
  EXPECT_EQ(NSFileHandle::fileHandleWithStandardInput()->fileDescriptor(), STDIN_FILENO);
  EXPECT_EQ(NSFileHandle::fileHandleWithStandardOutput()->fileDescriptor(), STDOUT_FILENO);
  EXPECT_TRUE(IsOpen(STDOUT_FILENO));
}

TEST(NSFileHandle, SecondReadWhileOneIsArmedRaises) {
  const Pipe pipe;
  const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.output.get(), false);
  handle->readInBackground([](std::string_view) {});
  ExpectRaises([&] { handle->readInBackground([](std::string_view) {}); }, "a read is armed already");
}

TEST(NSFileHandle, CancelledReadIsNotCompleted) {
  const Pipe pipe;
  const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.output.get(), false);
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  const auto token = handle->readInBackground([](std::string_view) { ADD_FAILURE() << "completed"; });
  handle->cancelReadInBackground(token);
  EXPECT_FALSE(NSRunLoop::currentRunLoop().runBeforeDate());
}

TEST(NSFileHandle, TokenOfAnEarlierReadCancelsNothing) {
  const Pipe pipe;
  const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.output.get(), false);
  const auto earlier = handle->readInBackground([](std::string_view) { ADD_FAILURE() << "completed"; });
  handle->cancelReadInBackground(earlier);
  std::string received;
  handle->readInBackground([&](std::string_view block) { received = block; });
  handle->cancelReadInBackground(earlier);
  handle->cancelReadInBackground(0);
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  EXPECT_TRUE(NSRunLoop::currentRunLoop().runBeforeDate());
  EXPECT_EQ(received, "x");
}

TEST(NSFileHandle, ReadOfADestroyedHandleIsNotCompleted) {
  const Pipe pipe;
  auto handle = NSFileHandle::handleOwning(Descriptor(dup(pipe.output.get())));
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  handle->readInBackground([](std::string_view) { ADD_FAILURE() << "completed"; });
  handle.reset();
  EXPECT_FALSE(NSRunLoop::currentRunLoop().runBeforeDate());
}

TEST(NSFileHandle, ClosingEndsAnArmedRead) {
  const Pipe pipe;
  const auto handle = NSFileHandle::handleOwning(Descriptor(dup(pipe.output.get())));
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  std::vector<std::string> blocks;
  handle->readInBackground([&](std::string_view block) { blocks.emplace_back(block); });
  handle->closeFile();
  const Descriptor reused(dup(pipe.output.get()));  // has the number that the handle had
  EXPECT_TRUE(blocks.empty());
  EXPECT_TRUE(NSRunLoop::currentRunLoop().runBeforeDate());
  EXPECT_EQ(blocks, std::vector<std::string>{""});
  EXPECT_FALSE(NSRunLoop::currentRunLoop().runBeforeDate());
}

TEST(NSFileHandle, ReadOnAClosedHandleRaises) {
  const Pipe pipe;
  const auto handle = NSFileHandle::handleOwning(Descriptor(dup(pipe.output.get())));
  handle->closeFile();
  ExpectRaises([&] { handle->readInBackground([](std::string_view) {}); }, "the handle is closed");
}

}  // namespace
}  // namespace zekara::test
