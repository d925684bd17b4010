#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>

#include "PortableFoundation/Descriptor.h"
#include "tests/support/Faults.h"
#include "tests/support/Processes.h"

#ifdef __linux__
#include <sys/inotify.h>
#endif

namespace zekara::test {
namespace {

bool IsOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(Descriptor, IsClosedAtTheEndUnlessReleased) {
  const Pipe pipe;
  int closed = -1;
  int released = -1;
  {
    Descriptor one(closed = dup(pipe.output.get()));
    Descriptor other(released = dup(pipe.output.get()));
    EXPECT_EQ(other.release(), released);
    EXPECT_FALSE(other.isOpen());
    EXPECT_TRUE(one.isOpen());
  }
  EXPECT_FALSE(IsOpen(closed));
  EXPECT_TRUE(IsOpen(released));
  close(released);
}

TEST(Descriptor, MovingPassesItOnAndClosesTheOld) {
  const Pipe pipe;
  const int first = dup(pipe.output.get());
  const int second = dup(pipe.output.get());
  Descriptor one(first);
  Descriptor other(second);
  one = std::move(other);
  EXPECT_FALSE(IsOpen(first));
  EXPECT_EQ(one.get(), second);
  Descriptor& self = one;
  one = std::move(self);
  EXPECT_TRUE(IsOpen(second));
  const Descriptor last(std::move(one));
  EXPECT_EQ(last.get(), second);
}

TEST(OpenAt, DescriptorIsClosedOnExecAndRelativeToItsDirectory) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "text");
  const Descriptor parent = OpenAt(AT_FDCWD, directory.path().c_str(), O_RDONLY | O_DIRECTORY);
  const Descriptor file = OpenAt(parent.get(), "file", O_RDONLY);
  ASSERT_TRUE(file.isOpen());
  EXPECT_NE(fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(ReadToEnd(file.get()), "text");
}

TEST(OpenAt, FailureLeavesErrnoAndNoDescriptor) {
  const TemporaryDirectory directory;
  const Descriptor file = OpenAt(AT_FDCWD, (directory / "missing").c_str(), O_RDONLY);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(file.isOpen());
}

TEST(OpenAt, InterruptedOpeningStartsAgain) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  const pid_t child = StartInterruptedChild(
      [&] { return OpenAt(AT_FDCWD, (directory / "fifo").c_str(), O_RDONLY).isOpen() ? 0 : 1; });
  const Descriptor writer(open((directory / "fifo").c_str(), O_RDWR | O_CLOEXEC));  // which never blocks
  EXPECT_EQ(WaitForChild(child), 0);
}

TEST(OpenLockedFile, MissingFileIsMadeWithTheModeLessTheMask) {
  RunInChild([] {
    const TemporaryDirectory directory;
    for (const mode_t mask : std::initializer_list<mode_t>{0, 022, 027, 077, 0777}) {
      umask(mask);
      const std::string path = directory / std::to_string(mask);
      const Descriptor file = OpenLockedFile(path.c_str(), 0444);
      ASSERT_TRUE(file.isOpen());
      EXPECT_EQ(ModeOf(path), 0444 & ~mask);
      EXPECT_EQ(write(file.get(), "x", 1), 1);
    }
  });
}

TEST(OpenLockedFile, FileIsLockedUntilTheDescriptorIsClosed) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  Descriptor file = OpenLockedFile((directory / "file").c_str(), 0444);
  ASSERT_TRUE(file.isOpen());
  const Descriptor other(open((directory / "file").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_NE(flock(other.get(), LOCK_SH | LOCK_NB), 0);
  EXPECT_EQ(errno, EWOULDBLOCK);
  file.reset();
  EXPECT_EQ(flock(other.get(), LOCK_SH | LOCK_NB), 0);
}

TEST(OpenLockedFile, HeldLockIsWaitedForThroughInterruptions) {
  const TemporaryDirectory directory;
  for (const int kind : {LOCK_EX, LOCK_SH}) {
    WriteFile(directory / "file", "");
    Descriptor holder(open((directory / "file").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(holder.get(), kind), 0);
    const pid_t child = StartInterruptedChild([&] {
      close(holder.get());
      const Descriptor file = OpenLockedFile((directory / "file").c_str(), 0444);
      return ReadToEnd(file.get()) == "released" ? 0 : 1;
    });
    WriteFile(directory / "file", "released");
    flock(holder.get(), LOCK_UN);
    EXPECT_EQ(WaitForChild(child), 0);
  }
}

#ifdef __linux__
TEST(OpenLockedFile, FailureToLockGivesNoDescriptor) {
  RunInChild([] {
    const TemporaryDirectory directory;
    const int before = CountOpenDescriptors();
    ASSERT_TRUE(MakeSystemCallsFail({SYS_flock}, ENOLCK));
    EXPECT_FALSE(OpenLockedFile((directory / "file").c_str(), 0444).isOpen());
    EXPECT_EQ(CountOpenDescriptors(), before);
  });
}
#endif

TEST(OpenLockedFile, WhatIsNotARegularFileIsRefusedWithoutBeingWaitedFor) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("fifo", (directory / "link").c_str()), 0);
  for (const std::string& path :
       {directory / "fifo", directory / "link", directory.path(), std::string("/dev/null")}) {
    EXPECT_FALSE(OpenLockedFile(path.c_str(), 0444).isOpen()) << path;
  }
}

TEST(OpenLockedFile, FileThatHasTakenThePathMeanwhileIsOpenedInstead) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "old");
  Descriptor holder(open((directory / "file").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(flock(holder.get(), LOCK_EX), 0);
  const pid_t child = StartChild([&] {
    close(holder.get());
    const Descriptor file = OpenLockedFile((directory / "file").c_str(), 0444);
    return ReadToEnd(file.get()) == "new" ? 0 : 1;
  });
  WaitUntilAsleep(child);
  WriteFile(directory / "other", "new");
  std::filesystem::rename(directory / "other", directory / "file");
  holder.reset();
  EXPECT_EQ(WaitForChild(child), 0);
}

TEST(OpenRegularFile, RegularFilesAloneAreOpened) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "text");
  ASSERT_EQ(symlink("file", (directory / "link").c_str()), 0);
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  for (const char* name : {"file", "link"}) {
    const Descriptor file = OpenRegularFile((directory / name).c_str());
    EXPECT_EQ(ReadToEnd(file.get()), "text");
  }
  for (const std::string& path :
       {directory / "fifo", directory / "missing", directory.path(), std::string("/dev/null")}) {
    EXPECT_FALSE(OpenRegularFile(path.c_str()).isOpen()) << path;
  }
}

#ifdef __linux__
// Opening a FIFO is enough to lose its writer's data, and opening some devices has an effect of its own.
TEST(OpenRegularFile, WhatIsNotRegularIsNotOpenedAtAll) {
  const TemporaryDirectory directory;
  const std::string fifo = directory / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(symlink("fifo", (directory / "link").c_str()), 0);
  const Descriptor openings(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  ASSERT_GE(inotify_add_watch(openings.get(), fifo.c_str(), IN_OPEN), 0);
  const auto wasOpened = [&] {
    char events[sizeof(inotify_event) + NAME_MAX + 1];
    return read(openings.get(), events, sizeof events) > 0;
  };
  for (const std::string& path : {fifo, directory / "link"}) {
    EXPECT_FALSE(OpenRegularFile(path.c_str()).isOpen());
    EXPECT_FALSE(wasOpened()) << path;
  }
  EXPECT_TRUE(Descriptor(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)).isOpen());
  EXPECT_TRUE(wasOpened()) << "or this test would notice nothing";
}
#endif

TEST(Examine, TellsOfTheFileOrFails) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "text");
  struct stat attributes = {};
  ASSERT_TRUE(Examine((directory / "file").c_str(), attributes));
  EXPECT_EQ(attributes.st_size, 4);
  EXPECT_FALSE(Examine((directory / "missing").c_str(), attributes));
  errno = ENOENT;
  EXPECT_FALSE(Examine(Descriptor(), attributes));
  EXPECT_EQ(errno, ENOENT) << "the error of the failed open";
}

TEST(ReadSome, EndOfInputIsZeroAndFailureIsMinusOne) {
  Pipe pipe;
  char byte = 0;
  pipe.input.reset();
  EXPECT_EQ(ReadSome(pipe.output.get(), &byte, 1), 0);
  EXPECT_EQ(ReadSome(-1, &byte, 1), -1);
  EXPECT_EQ(errno, EBADF);
}

class Blocking : public testing::TestWithParam<int> {};

TEST_P(Blocking, ReadWaitsThroughInterruptions) {
  Pipe pipe;
  fcntl(pipe.output.get(), F_SETFL, GetParam());
  const pid_t child = StartInterruptedChild([&] {
    char block[8] = {};
    return ReadSome(pipe.output.get(), block, sizeof block) == 1 && block[0] == 'x' ? 0 : 1;
  });
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  EXPECT_EQ(WaitForChild(child), 0);
}

TEST_P(Blocking, WriteIsWholeThroughFullPipesAndInterruptions) {
  Pipe pipe;
  fcntl(pipe.input.get(), F_SETFL, GetParam());
  std::string bytes(700'001, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 253);
  const pid_t child = StartInterruptedChild([&] {
    pipe.output.reset();
    return WriteAll(pipe.input.get(), bytes);
  });
  pipe.input.reset();
  std::string received;
  char block[65536];
  while (received.size() < 300'000) {
    WaitUntilAsleep(child);
    kill(child, SIGUSR1);
    const ssize_t count = read(pipe.output.get(), block, 10'007);
    ASSERT_GT(count, 0);
    received.append(block, static_cast<std::size_t>(count));
  }
  received += ReadToEnd(pipe.output.get());
  EXPECT_TRUE(received == bytes) << "received " << received.size() << " bytes";
  EXPECT_EQ(WaitForChild(child), 0);
}

INSTANTIATE_TEST_SUITE_P(BlockingAndNot, Blocking, testing::Values(0, O_NONBLOCK));

TEST(WriteAll, FailureIsMinusOneWithErrno) {
  RunInChild([] {
    signal(SIGPIPE, SIG_IGN);
    Pipe pipe;
    pipe.output.reset();
    EXPECT_EQ(WriteAll(pipe.input.get(), "x"), -1);
    EXPECT_EQ(errno, EPIPE);
  });
}

TEST(WriteAll, NoBytesNeedNoCall) {
  EXPECT_EQ(WriteAll(-1, ""), 0);
}

TEST(IsSameFile, LinksAreTheSameAndCopiesAreNot) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "text");
  WriteFile(directory / "copy", "text");
  ASSERT_EQ(link((directory / "file").c_str(), (directory / "link").c_str()), 0);
  EXPECT_TRUE(IsSameFile(StatusOf(directory / "file"), StatusOf(directory / "link")));
  EXPECT_FALSE(IsSameFile(StatusOf(directory / "file"), StatusOf(directory / "copy")));
  struct stat moved = StatusOf(directory / "file");
  moved.st_dev += 1;
  EXPECT_FALSE(IsSameFile(StatusOf(directory / "file"), moved));
}

}  // namespace
}  // namespace zekara::test
