#include "tests/support/Files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sstream>
#include <system_error>

namespace zekara::test {

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = std::filesystem::temp_directory_path() / "zekara-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  path_ = std::filesystem::canonical(pattern).string();
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path << " cannot be read";
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  ASSERT_TRUE(file.flush().good()) << path << " cannot be written";
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
  return status;
}

mode_t ModeOf(const std::string& path) {
  return StatusOf(path).st_mode & 07777U;
}

Pipe::Pipe() {
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  output.reset(ends[0]);
  input.reset(ends[1]);
}

std::string ReadToEnd(int descriptor) {
  std::string text;
  char block[65536];
  ssize_t count = 0;
  while ((count = ReadSome(descriptor, block, sizeof block)) > 0) {
    text.append(block, static_cast<std::size_t>(count));
  }
  return text;
}

int CountOpenDescriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 4096; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) ++count;
  }
  return count;
}

CapturedLog::CapturedLog() : standardError_(dup(STDERR_FILENO)) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  if (!standardError_.isOpen() || file == nullptr || dup2(fileno(file.get()), STDERR_FILENO) < 0) {
    throw std::system_error(errno, std::generic_category(), "capturing standard error");
  }
}

CapturedLog::~CapturedLog() {
  dup2(standardError_.get(), STDERR_FILENO);
}

std::string CapturedLog::text() const {
  std::string text(static_cast<std::size_t>(lseek(STDERR_FILENO, 0, SEEK_END)), '\0');
  EXPECT_EQ(pread(STDERR_FILENO, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  return text;
}

std::vector<std::string> CapturedLog::messages() const {
  std::vector<std::string> messages;
  std::istringstream lines(text());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t prefix = line.find("] ");
    messages.push_back(prefix == std::string::npos ? line : line.substr(prefix + 2));
  }
  return messages;
}

}  // namespace zekara::test
