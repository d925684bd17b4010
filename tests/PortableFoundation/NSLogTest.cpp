#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <thread>
#include <vector>

#include "PortableFoundation/NSLog.h"
#include "tests/support/Processes.h"

namespace zekara::test {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

#ifdef __APPLE__
std::uint64_t ThreadId() {
  std::uint64_t id = 0;
  pthread_threadid_np(nullptr, &id);
  return id;
}
std::string ProgramName() {
  return getprogname();
}
#else
pid_t ThreadId() {
  return gettid();
}
std::string ProgramName() {
  return program_invocation_short_name;
}
#endif

// While this object exists, standard error is a socket that keeps the writes apart.
class RecordedWrites {
 public:
  RecordedWrites() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    reader_.reset(ends[0]);
    const Descriptor writer(ends[1]);
    const int size = 1 << 20;
    setsockopt(writer.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    setsockopt(reader_.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    std::fflush(stderr);
    dup2(writer.get(), STDERR_FILENO);
  }
  RecordedWrites(const RecordedWrites&) = delete;
  RecordedWrites& operator=(const RecordedWrites&) = delete;
  ~RecordedWrites() { dup2(standardError_.get(), STDERR_FILENO); }

  // The writes since the last call.
  std::vector<std::string> take() const {
    std::vector<std::string> writes;
    std::string buffer(1 << 20, '\0');
    for (;;) {
      const ssize_t count = recv(reader_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count <= 0) return writes;
      writes.emplace_back(buffer, 0, static_cast<std::size_t>(count));
    }
  }

 private:
  Descriptor standardError_{dup(STDERR_FILENO)};
  Descriptor reader_;
};

TEST(NSLog, LineHasTimeProgramAndIdsBeforeTheMessage) {
  CapturedLog log;
  SetLogProgramName("Program");
  const std::time_t before = std::time(nullptr);
  NSLog("PostInstall task");
  const std::time_t after = std::time(nullptr);
  SetLogProgramName(nullptr);
  const std::string line = log.text();
  const std::regex form(
      R"((\d{4})-(\d{2})-(\d{2}) (\d{2}):(\d{2}):(\d{2})\.(\d{3}) Program\[(\d+):(\d+)\] PostInstall task\n)");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts, form)) << line;
  std::tm local = {};
  local.tm_year = std::stoi(parts[1]) - 1900;
  local.tm_mon = std::stoi(parts[2]) - 1;
  local.tm_mday = std::stoi(parts[3]);
  local.tm_hour = std::stoi(parts[4]);
  local.tm_min = std::stoi(parts[5]);
  local.tm_sec = std::stoi(parts[6]);
  local.tm_isdst = -1;
  const std::time_t logged = std::mktime(&local);
  EXPECT_GE(logged, before - 1);
  EXPECT_LE(logged, after);
  EXPECT_EQ(std::stoi(parts[8]), getpid());
  EXPECT_EQ(parts[9], std::to_string(ThreadId()));
}

TEST(NSLog, TimeIsLocal) {
  RunInChild([] {
    setenv("TZ", "TEST-11:30", 1);  // east of Greenwich
    tzset();
    CapturedLog log;
    std::time_t now = std::time(nullptr);
    NSLog("x");
    std::vector<std::string> allowed;
    for (int seconds = 0; seconds <= static_cast<int>(kPatienceSeconds); ++seconds, ++now) {
      char text[32];
      const std::time_t shifted = now + 11 * 3600 + 30 * 60;
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::gmtime(&shifted));
      allowed.emplace_back(text);
    }
    EXPECT_THAT(allowed, testing::Contains(log.text().substr(0, 19)));
  });
}

TEST(NSLog, ProgramNameIsTheOneOfTheStartUntilItIsSet) {
  CapturedLog log;
  NSLog("first");
  SetLogProgramName("Other");
  NSLog("second");
  SetLogProgramName(nullptr);
  EXPECT_THAT(log.text(), ContainsRegex(" " + ProgramName() + "\\[[^\n]*first\n"));
  EXPECT_THAT(log.text(), ContainsRegex(" Other\\[[^\n]*second\n"));
}

TEST(NSLog, LongProgramNameIsCut) {
  CapturedLog log;
  const std::string name(5000, 'n');
  SetLogProgramName(name.c_str());
  NSLog("message");
  SetLogProgramName(nullptr);
  EXPECT_THAT(log.text(), HasSubstr(" " + std::string(64, 'n') + "["));
  EXPECT_THAT(log.messages(), ElementsAre("message"));
}

TEST(NSLog, MessageThatEndsInALineEndGetsNoSecondOne) {
  CapturedLog log;
  NSLog("one\n");
  EXPECT_THAT(log.text(), EndsWith("] one\n"));
}

TEST(NSLog, EmptyMessageStillMakesALine) {
  CapturedLog log;
  NSLog("%s", "");
  EXPECT_THAT(log.text(), EndsWith("] \n"));
}

TEST(NSLog, FormatDirectivesInsideArgumentsAreText) {
  CapturedLog log;
  NSLog("Can't signal %d to %s", 15, "%n%s%%d /tmp/%1000000d");
  EXPECT_THAT(log.messages(), ElementsAre("Can't signal 15 to %n%s%%d /tmp/%1000000d"));
}

// Lengths around the size of the array in which NSLog() forms a line, and far beyond it.
std::vector<std::size_t> Lengths() {
  std::vector<std::size_t> lengths = {1, 100, 4096, 65536, 150'000};
  for (std::size_t length = 900; length <= 1030; ++length) lengths.push_back(length);
  return lengths;
}

TEST(NSLog, MessageOfAnyLengthIsOneWriteAndWhole) {
  for (const std::size_t length : Lengths()) {
    const RecordedWrites writes;
    const std::string message(length, 'm');
    NSLog("%s", message.c_str());
    EXPECT_THAT(writes.take(), ElementsAre(EndsWith("] " + message + "\n"))) << length;
  }
}

TEST(NSLog, MessageOfAnyLengthWithItsOwnLineEndIsOneWriteAndWhole) {
  for (const std::size_t length : Lengths()) {
    const RecordedWrites writes;
    const std::string message(length, 'm');
    NSLog("%s\n", message.c_str());
    EXPECT_THAT(writes.take(), ElementsAre(EndsWith("] " + message + "\n"))) << length;
  }
}

TEST(NSLog, ErrorNumberIsKept) {
  RunInChild([] {
    close(STDERR_FILENO);
    errno = ENOTEMPTY;
    NSLog("this is lost");
    EXPECT_EQ(errno, ENOTEMPTY);
  });
}

TEST(NSLog, FullNonBlockingStandardErrorIsWaitedFor) {
  Pipe pipe;
  const pid_t child = StartChild([&] {
    fcntl(pipe.input.get(), F_SETFL, O_NONBLOCK);
    const std::string filler(4096, 'f');
    while (write(pipe.input.get(), filler.data(), filler.size()) > 0) {
    }
    dup2(pipe.input.get(), STDERR_FILENO);
    NSLog("the last line");
    return 0;
  });
  WaitUntilAsleep(child);
  pipe.input.reset();
  EXPECT_TRUE(ReadToEnd(pipe.output.get()).ends_with("] the last line\n"));
  EXPECT_EQ(WaitForChild(child), 0);
}

TEST(NSLog, HeldBackLinesAreWrittenOneByOneAtTheEnd) {
  const RecordedWrites writes;
  {
    const BufferedLog heldBack;
    NSLog("one");
    NSLog("two\n");
    EXPECT_THAT(writes.take(), testing::IsEmpty());
  }
  EXPECT_THAT(writes.take(), ElementsAre(EndsWith("] one\n"), EndsWith("] two\n")));
  NSLog("three");
  EXPECT_THAT(writes.take(), ElementsAre(EndsWith("] three\n")));
  {
    const BufferedLog heldBack;
    NSLog("four");
  }
  EXPECT_THAT(writes.take(), ElementsAre(EndsWith("] four\n")));
}

TEST(NSLog, HeldBackLinesBeyondTheRoomAreLostWhole) {
  CapturedLog log;
  const std::string large(3000, 'l');
  {
    const BufferedLog heldBack;
    NSLog("first");
    NSLog("%s", std::string(100'000, 'x').c_str());
    NSLog("%s", large.c_str());
    NSLog("%s", large.c_str());
    NSLog("last");
  }
  EXPECT_THAT(log.messages(), ElementsAre("first", large, "last"));
}

TEST(NSLog, ReaderThatReadsNothingIsNotWaitedForWhileLinesAreHeldBack) {
  RunInChild([] {
    const Pipe pipe;
    fcntl(pipe.input.get(), F_SETFL, O_NONBLOCK);
    const std::string filler(4096, 'f');
    while (write(pipe.input.get(), filler.data(), filler.size()) > 0) {
    }
    fcntl(pipe.input.get(), F_SETFL, 0);
    const int saved = dup(STDERR_FILENO);
    const auto heldBack = new BufferedLog;  // never deleted, because its destructor would wait for the reader
    dup2(pipe.input.get(), STDERR_FILENO);
    for (int i = 0; i < 10'000; ++i) NSLog("Can't signal 1 to /var/zekara/run/FileD.pid");
    dup2(saved, STDERR_FILENO);
    EXPECT_NE(heldBack, nullptr);
  });
}

TEST(NSLog, SecondThreadHasItsOwnId) {
  CapturedLog log;
  const auto own = ThreadId();
  auto id = own;
  std::thread([&] {
    id = ThreadId();
    NSLog("from a thread");
  }).join();
  EXPECT_NE(id, own);
  EXPECT_THAT(log.text(), HasSubstr("[" + std::to_string(getpid()) + ":" + std::to_string(id) + "] "));
}

}  // namespace
}  // namespace zekara::test
