#pragma once

// The files, pipes and descriptors of a test.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Descriptor.h"

namespace zekara::test {

// A new, empty directory below $TMPDIR, or below /tmp. Its mode is 0700. The destructor removes it with all
// that it holds. The constructor throws std::system_error if no directory can be made.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  // The absolute path, without symbolic links.
  const std::string& path() const noexcept { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// These fail the running test if they cannot do what they say, and the test goes on. Texts are bytes.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view text);  // creates or overwrites the file
struct stat StatusOf(const std::string& path);                   // of a link itself, not of its target
mode_t ModeOf(const std::string& path);                          // the twelve permission bits

// A pipe. Both ends are closed when a program is started, and stay open in a child of fork(): a test that
// waits for the end of the input closes every copy of `input`. The constructor throws std::system_error if
// there is no descriptor left.
struct Pipe {
  Pipe();

  Descriptor output;  // what was written to `input` is read here
  Descriptor input;
};

// Returns the bytes up to the end of the input, or up to the first failure.
std::string ReadToEnd(int descriptor);

// Counts the descriptors below 4096 that are open in this process.
int CountOpenDescriptors();

// While this object exists, standard error is a file, which children that start during that time share. The
// test leaves descriptor 2 of this process alone in between. The constructor throws std::system_error if
// there is no file or no descriptor left.
//
//   const CapturedLog log;
//   NSLog("message");
//   EXPECT_THAT(log.messages(), ElementsAre("message"));
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();

  // Returns what has been written so far.
  std::string text() const;
  // Returns its lines, without the time, the program and the IDs that NSLog() puts before each message.
  std::vector<std::string> messages() const;

 private:
  Descriptor standardError_;  // as it was before
};

}  // namespace zekara::test
