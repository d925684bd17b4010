#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace zekara {

// A new, empty directory for the files of one test; it is removed at the end with all that it holds.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  const std::string& path() const noexcept { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// These fail the running test when the file cannot be written or read.
void WriteTestFile(const std::string& path, std::string_view bytes);
std::string ReadTestFile(const std::string& path);

// Whether something stands at the path, a dangling link included.
bool Exists(const std::string& path);

// Keeps what is written to descriptor 2 while it lives.
class StandardErrorCapture {
 public:
  StandardErrorCapture();
  StandardErrorCapture(const StandardErrorCapture&) = delete;
  StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;
  ~StandardErrorCapture();

  // What NSLog() was given so far, one element a line: the lines without their time stamps.
  std::vector<std::string> messages() const;

 private:
  std::FILE* file_;
  int standardError_;
};

}  // namespace zekara
