#include "tests/support/TestFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace zekara {

TemporaryDirectory::TemporaryDirectory() : path_(testing::TempDir() + "/zekara-test-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr)
    throw std::runtime_error("cannot make a directory in " + testing::TempDir());
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void WriteTestFile(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  ASSERT_TRUE(file.good()) << path;
}

std::string ReadTestFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool Exists(const std::string& path) {
  struct stat attributes = {};
  return lstat(path.c_str(), &attributes) == 0;
}

StandardErrorCapture::StandardErrorCapture() : file_(std::tmpfile()), standardError_(dup(STDERR_FILENO)) {
  if (file_ == nullptr || standardError_ < 0 || dup2(fileno(file_), STDERR_FILENO) < 0) {
    throw std::runtime_error("cannot capture the standard error");
  }
}

StandardErrorCapture::~StandardErrorCapture() {
  dup2(standardError_, STDERR_FILENO);
  close(standardError_);
  std::fclose(file_);
}

std::vector<std::string> StandardErrorCapture::messages() const {
  struct stat attributes = {};
  fstat(fileno(file_), &attributes);
  std::string text(static_cast<std::size_t>(attributes.st_size), '\0');
  if (pread(fileno(file_), text.data(), text.size(), 0) != attributes.st_size) {
    throw std::runtime_error("cannot read what was captured");
  }
  std::vector<std::string> messages;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t stamp = line.find("] ");
    messages.push_back(stamp == std::string::npos ? line : line.substr(stamp + 2));
  }
  return messages;
}

}  // namespace zekara
